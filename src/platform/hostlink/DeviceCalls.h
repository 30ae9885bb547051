#pragma once

#include <cstdint>
#include <memory>
#include <string>

/// The system calls with which layers reach device nodes. Tests put devices of their own in their place.
class DeviceCalls
{
public:
    virtual ~DeviceCalls() = default;

    /// As open(2), ioctl(2) and close(2): negative and errno when they fail.
    virtual int open(const std::string& path, int flags) = 0;
    virtual int ioctl(int descriptor, unsigned long request, std::uintptr_t argument) = 0;
    virtual void close(int descriptor) = 0;

    static std::shared_ptr<DeviceCalls> system();
};

/// An open device node, or none.
class DeviceNode
{
public:
    explicit DeviceNode(std::shared_ptr<DeviceCalls> calls);
    ~DeviceNode() { close(); }
    DeviceNode(const DeviceNode&) = delete;
    DeviceNode& operator=(const DeviceNode&) = delete;

    /// Closes what was open. False and errno when the node cannot be opened.
    bool open(const std::string& path, int flags);
    void close();

    int ioctl(unsigned long request, std::uintptr_t argument) const;
    int ioctl(unsigned long request, void* argument) const;

    int descriptor() const { return m_descriptor; }
    explicit operator bool() const { return m_descriptor >= 0; }

private:
    const std::shared_ptr<DeviceCalls> m_calls;
    int m_descriptor = -1;
};
