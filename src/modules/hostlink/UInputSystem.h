#pragma once

#include <cstddef>

/// The system calls behind a virtual input device, each with the result of the call of its name.
class UInputSystem
{
public:
    virtual ~UInputSystem() = default;

    virtual int open(const char* path, int flags) = 0;
    virtual int ioctl(int descriptor, unsigned long request, int argument) = 0;
    virtual std::ptrdiff_t write(int descriptor, const void* bytes, std::size_t size) = 0;
    virtual int close(int descriptor) = 0;

    /// Those of the kernel.
    static UInputSystem& kernel();
};
