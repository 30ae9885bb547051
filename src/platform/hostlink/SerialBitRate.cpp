#include "platform/hostlink/SerialBitRate.h"

#include <asm/termbits.h>
#include <sys/ioctl.h>

#include "platform/hostlink/DeviceCalls.h"

bool SerialBitRate::set(const DeviceNode& device, int bitsPerSecond)
{
    termios2 settings{};
    if (device.ioctl(TCGETS2, &settings) != 0) {
        return false;
    }
    settings.c_cflag &= ~tcflag_t(CBAUD | (CBAUD << IBSHIFT)); // the input rate follows the output rate
    settings.c_cflag |= BOTHER;
    settings.c_ospeed = settings.c_ispeed = speed_t(bitsPerSecond);
    return device.ioctl(TCSETS2, &settings) == 0;
}

int SerialBitRate::get(const DeviceNode& device)
{
    termios2 settings{};
    return device.ioctl(TCGETS2, &settings) == 0 ? int(settings.c_ospeed) : 0;
}
