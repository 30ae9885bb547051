#include "modules/hostlink/UInputHandler.h"

#include <fcntl.h>
#include <linux/uinput.h>

#include <algorithm>
#include <string_view>

#include "modules/hostlink/Log.h"
#include "platform/hostlink/HostLinkValueMessage.h"
#include "vocabulary/Channels.h"

namespace
{

constexpr const char* kUInputPath = "/dev/uinput";
constexpr std::string_view kDeviceName = "hostlink";
constexpr int kNoDevice = -1;

// Of a 64-bit system, as the kernel reads them.
static_assert(sizeof(input_event) == 24);
static_assert(sizeof(uinput_user_dev) == 1116);
static_assert(KEY_MAX == 767);

} // namespace

UInputHandler::UInputHandler(QObject* parent, UInputSystem& system)
    : QObject(parent), m_system(system), m_device(m_system.open(kUInputPath, O_WRONLY | O_NONBLOCK))
{
    if (m_device < 0) {
        m_device = kNoDevice;
        LOG4CPLUS_ERROR(hostLinkLogger,
                        "Uinput not available - do you have CONFIG_INPUT_UINPUT in your kernel?");
        return;
    }
    enableKeys();
    writeDescription();
    m_system.ioctl(m_device, UI_DEV_CREATE, 0);
    LOG4CPLUS_INFO(hostLinkLogger, "Uinput device registered");
}

UInputHandler::~UInputHandler()
{
    UInputHandler::shutdown();
}

void UInputHandler::enableKeys()
{
    m_system.ioctl(m_device, UI_SET_EVBIT, EV_KEY);
    for (int key = 0; key <= KEY_MAX; ++key) {
        m_system.ioctl(m_device, UI_SET_KEYBIT, key);
    }
}

void UInputHandler::writeDescription()
{
    uinput_user_dev description{};
    std::copy(kDeviceName.begin(), kDeviceName.end(), description.name);
    const auto size = static_cast<std::ptrdiff_t>(sizeof description);
    if (m_system.write(m_device, &description, sizeof description) < size) {
        LOG4CPLUS_ERROR(hostLinkLogger, "Cannot write uidev do uintput");
    }
}

bool UInputHandler::handleMessage(MessageId id, const ByteArray& bytes)
{
    if (id != MSG_InputEvent) {
        return false;
    }
    LOG4CPLUS_DEBUG(hostLinkLogger, "Received input event");
    const HostLinkValueMessage message(bytes);
    for (int i = 0; i < message.size(); ++i) {
        const int action = message.getTag(i);
        const int key = message.getUint16(i);
        LOG4CPLUS_DEBUG(hostLinkLogger, "received input event, key: " << key << " key action: " << action);
        inputEvent(action, key);
    }
    if (message.size() > 0) {
        inputEventSyn();
    }
    return true;
}

bool UInputHandler::inputEvent(int action, int key)
{
    if (m_device == kNoDevice || writeEvent(EV_KEY, key, action == kKeyPressed ? 1 : 0)) {
        return true;
    }
    LOG4CPLUS_ERROR(hostLinkLogger, "Cannot write input event to uintput");
    return false;
}

void UInputHandler::inputEventSyn()
{
    if (m_device != kNoDevice && !writeEvent(EV_SYN, SYN_REPORT, 0)) {
        LOG4CPLUS_ERROR(hostLinkLogger, "Cannot write syn input event to uintput");
    }
}

bool UInputHandler::writeEvent(int type, int code, int value)
{
    input_event event{};
    event.type = static_cast<__u16>(type);
    event.code = static_cast<__u16>(code);
    event.value = value;
    return m_system.write(m_device, &event, sizeof event) == static_cast<std::ptrdiff_t>(sizeof event);
}

void UInputHandler::shutdown()
{
    if (m_device == kNoDevice) {
        return;
    }
    m_system.ioctl(m_device, UI_DEV_DESTROY, 0);
    m_system.close(m_device);
    m_device = kNoDevice;
}
