#include "modules/hostlink/UInputSystem.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace
{

class KernelCalls : public UInputSystem
{
public:
    int open(const char* path, int flags) override { return ::open(path, flags); }
    int ioctl(int descriptor, unsigned long request, int argument) override
    {
        return ::ioctl(descriptor, request, argument);
    }
    std::ptrdiff_t write(int descriptor, const void* bytes, std::size_t size) override
    {
        return ::write(descriptor, bytes, size);
    }
    int close(int descriptor) override { return ::close(descriptor); }
};

} // namespace

UInputSystem& UInputSystem::kernel()
{
    static KernelCalls calls;
    return calls;
}
