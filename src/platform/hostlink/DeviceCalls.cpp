#include "platform/hostlink/DeviceCalls.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <utility>

namespace
{

class SystemCalls : public DeviceCalls
{
public:
    int open(const std::string& path, int flags) override { return ::open(path.c_str(), flags | O_CLOEXEC); }
    int ioctl(int descriptor, unsigned long request, std::uintptr_t argument) override
    {
        return ::ioctl(descriptor, request, argument);
    }
    void close(int descriptor) override { ::close(descriptor); }
};

} // namespace

std::shared_ptr<DeviceCalls> DeviceCalls::system()
{
    return std::make_shared<SystemCalls>();
}

DeviceNode::DeviceNode(std::shared_ptr<DeviceCalls> calls) : m_calls(std::move(calls)) {}

bool DeviceNode::open(const std::string& path, int flags)
{
    close();
    m_descriptor = m_calls->open(path, flags);
    return m_descriptor >= 0;
}

void DeviceNode::close()
{
    if (m_descriptor >= 0) {
        m_calls->close(std::exchange(m_descriptor, -1));
    }
}

int DeviceNode::ioctl(unsigned long request, std::uintptr_t argument) const
{
    return m_calls->ioctl(m_descriptor, request, argument);
}

int DeviceNode::ioctl(unsigned long request, void* argument) const
{
    return ioctl(request, reinterpret_cast<std::uintptr_t>(argument));
}
