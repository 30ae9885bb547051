#include "platform/hostlink/SerialBitRate.h"

#include <asm/termbits.h>
#include <sys/ioctl.h>

bool SerialBitRate::set(int descriptor, int bitsPerSecond)
{
    termios2 settings{};
    if (::ioctl(descriptor, TCGETS2, &settings) != 0) {
        return false;
    }
    settings.c_cflag &= ~tcflag_t(CBAUD | (CBAUD << IBSHIFT)); // the input rate follows the output rate
    settings.c_cflag |= BOTHER;
    settings.c_ospeed = settings.c_ispeed = speed_t(bitsPerSecond);
    return ::ioctl(descriptor, TCSETS2, &settings) == 0;
}

int SerialBitRate::get(int descriptor)
{
    termios2 settings{};
    return ::ioctl(descriptor, TCGETS2, &settings) == 0 ? int(settings.c_ospeed) : 0;
}
