#include "vm/i2c-bus/CuseI2cDevice.h"

#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <system_error>
#include <utility>

namespace
{
constexpr std::size_t kLongestMessage = 8192; // as in i2c-dev
constexpr std::chrono::milliseconds kTimeoutUnit{10};

CuseI2cDevice& deviceOf(fuse_req_t request)
{
    return *static_cast<CuseI2cDevice*>(fuse_req_userdata(request));
}

/// The memory of the program that called. To have it copied by the kernel instead takes a round trip for each
/// level of pointers, and a slow machine does this thousands of times.
class CallerMemory
{
public:
    explicit CallerMemory(fuse_req_t request) : m_pid(fuse_req_ctx(request)->pid) {}

    /// False when it is not there.
    bool copyIn(void* to, void* from, std::size_t size) const
    {
        const iovec here{to, size};
        const iovec there{from, size};
        return ::process_vm_readv(m_pid, &here, 1, &there, 1, 0) == ssize_t(size);
    }
    bool copyOut(void* to, const void* from, std::size_t size) const
    {
        const iovec here{const_cast<void*>(from), size};
        const iovec there{to, size};
        return ::process_vm_writev(m_pid, &here, 1, &there, 1, 0) == ssize_t(size);
    }

private:
    const pid_t m_pid; ///< of its thread
};
} // namespace

/// The calls of the C library, which finds the device in the request.
struct CuseI2cDevice::Calls {
    static void initDone(void* device) { static_cast<CuseI2cDevice*>(device)->m_isThere = true; }

    static void open(fuse_req_t request, fuse_file_info* file) { deviceOf(request).open(request, file); }

    static void release(fuse_req_t request, fuse_file_info* file)
    {
        deviceOf(request).release(request, file);
    }

    static void read(fuse_req_t request, std::size_t size, off_t, fuse_file_info* file)
    {
        CuseI2cDevice& device = deviceOf(request);
        const I2cOutcome outcome = device.m_bus.transfer({device.m_address[file->fh], true, size, {}});
        device.answer(outcome.duration, [request, outcome] {
            if (outcome.error != 0) {
                fuse_reply_err(request, outcome.error);
            } else {
                fuse_reply_buf(request, reinterpret_cast<const char*>(outcome.bytes.data()),
                               outcome.bytes.size());
            }
        });
    }

    static void write(fuse_req_t request, const char* bytes, std::size_t size, off_t, fuse_file_info* file)
    {
        CuseI2cDevice& device = deviceOf(request);
        const I2cOutcome outcome =
            device.m_bus.transfer({device.m_address[file->fh], false, size, ByteArray(bytes, bytes + size)});
        device.answer(outcome.duration, [request, size, error = outcome.error] {
            if (error != 0) {
                fuse_reply_err(request, error);
            } else {
                fuse_reply_write(request, size);
            }
        });
    }

    static void ioctl(fuse_req_t request, int command, void* argument, fuse_file_info* file, unsigned flags,
                      const void*, std::size_t, std::size_t)
    {
        if (flags & FUSE_IOCTL_COMPAT) {
            fuse_reply_err(request, ENOSYS);
            return;
        }
        deviceOf(request).control(request, unsigned(command), argument, file);
    }
};

void CuseI2cDevice::appear()
{
    if (m_session) {
        return;
    }
    const std::string name = "DEVNAME=" + m_name;
    const char* properties[] = {name.c_str()};
    cuse_info info{};
    info.dev_info_argc = 1;
    info.dev_info_argv = properties;
    info.flags = CUSE_UNRESTRICTED_IOCTL;
    cuse_lowlevel_ops calls{};
    calls.init_done = Calls::initDone;
    calls.open = Calls::open;
    calls.release = Calls::release;
    calls.read = Calls::read;
    calls.write = Calls::write;
    calls.ioctl = Calls::ioctl;

    char program[] = "i2c-bus";
    char* words[] = {program, nullptr};
    fuse_args arguments = FUSE_ARGS_INIT(1, words);
    const int channel = ::open("/dev/cuse", O_RDWR | O_CLOEXEC);
    if (channel < 0) {
        throw std::system_error(errno, std::generic_category(), "/dev/cuse");
    }
    m_session = cuse_lowlevel_new(&arguments, &info, &calls, this);
    if (!m_session || fuse_session_mount(m_session, ("/dev/fd/" + std::to_string(channel)).c_str()) != 0) {
        ::close(channel);
        throw std::system_error(EIO, std::generic_category(), "CUSE");
    }
    while (!m_isThere) {
        receive();
    }
}

void CuseI2cDevice::vanish()
{
    service(HostLinkTime::max());
    if (m_session) {
        fuse_session_destroy(std::exchange(m_session, nullptr)); // which closes the channel
    }
    m_isThere = false;
    m_address.clear();
}

int CuseI2cDevice::descriptor() const
{
    return m_session && !m_reply ? fuse_session_fd(m_session) : -1;
}

void CuseI2cDevice::receive()
{
    fuse_buf buffer{};
    const int size = fuse_session_receive_buf(m_session, &buffer);
    if (size > 0) {
        fuse_session_process_buf(m_session, &buffer);
    }
    std::free(buffer.mem);
    if (size <= 0 && size != -EINTR && size != -EAGAIN) {
        throw std::system_error(-size, std::generic_category(), "/dev/cuse");
    }
}

void CuseI2cDevice::service(HostLinkTime now)
{
    if (m_reply && now >= m_busyUntil) {
        m_busyUntil = HostLinkTime::max();
        std::exchange(m_reply, nullptr)();
    }
}

void CuseI2cDevice::answer(HostLinkDuration after, std::function<void()> reply)
{
    if (after == HostLinkDuration::zero()) {
        reply();
        return;
    }
    m_reply = std::move(reply);
    m_busyUntil = HostLinkClock::now() + after;
}

void CuseI2cDevice::open(fuse_req_t request, fuse_file_info* file)
{
    file->fh = ++m_files;
    file->direct_io = 1;
    file->nonseekable = 1;
    m_address[file->fh] = 0;
    fuse_reply_open(request, file);
}

void CuseI2cDevice::release(fuse_req_t request, fuse_file_info* file)
{
    m_address.erase(file->fh);
    fuse_reply_err(request, 0);
}

void CuseI2cDevice::control(fuse_req_t request, unsigned command, void* argument, fuse_file_info* file)
{
    static constexpr unsigned long kAbilities = I2C_FUNC_I2C;
    const auto number = reinterpret_cast<std::uintptr_t>(argument);
    switch (command) {
    case I2C_SLAVE:
    case I2C_SLAVE_FORCE: m_address[file->fh] = int(number); break;
    case I2C_TIMEOUT: m_bus.setTimeout(kTimeoutUnit * number); break;
    case I2C_RETRIES: break;
    case I2C_FUNCS:
        if (!CallerMemory(request).copyOut(argument, &kAbilities, sizeof kAbilities)) {
            fuse_reply_err(request, EFAULT);
            return;
        }
        break;
    case I2C_RDWR: transferMessages(request, argument); return;
    default: fuse_reply_err(request, ENOTTY); return;
    }
    fuse_reply_ioctl(request, 0, nullptr, 0);
}

void CuseI2cDevice::transferMessages(fuse_req_t request, void* argument)
{
    const CallerMemory memory(request);
    i2c_rdwr_ioctl_data record{};
    if (!memory.copyIn(&record, argument, sizeof record)) {
        fuse_reply_err(request, EFAULT);
        return;
    }
    if (record.nmsgs == 0 || record.nmsgs > I2C_RDWR_IOCTL_MAX_MSGS) {
        fuse_reply_err(request, EINVAL);
        return;
    }
    std::vector<i2c_msg> messages(record.nmsgs);
    if (!memory.copyIn(messages.data(), record.msgs, messages.size() * sizeof(i2c_msg))) {
        fuse_reply_err(request, EFAULT);
        return;
    }
    std::vector<I2cTransfer> transfers;
    for (const i2c_msg& message : messages) {
        const bool isRead = (message.flags & I2C_M_RD) != 0;
        transfers.push_back({message.addr, isRead, message.len, ByteArray(isRead ? 0 : message.len)});
        ByteArray& bytes = transfers.back().bytes;
        if (message.len > kLongestMessage) {
            fuse_reply_err(request, EINVAL);
            return;
        }
        if (!isRead && !memory.copyIn(bytes.data(), message.buf, bytes.size())) {
            fuse_reply_err(request, EFAULT);
            return;
        }
    }

    int error = 0;
    HostLinkDuration duration = HostLinkDuration::zero();
    std::vector<ByteArray> read; // of each message
    for (const I2cTransfer& each : transfers) {
        I2cOutcome outcome = m_bus.transfer(each);
        duration += outcome.duration;
        error = outcome.error;
        if (error != 0) {
            break;
        }
        read.push_back(std::move(outcome.bytes));
    }
    answer(duration, [request, memory, error, messages, read] {
        bool copied = true;
        for (std::size_t i = 0; error == 0 && i < read.size(); ++i) {
            copied = copied && memory.copyOut(messages[i].buf, read[i].data(), read[i].size());
        }
        if (error != 0 || !copied) {
            fuse_reply_err(request, error != 0 ? error : EFAULT);
        } else {
            fuse_reply_ioctl(request, int(messages.size()), nullptr, 0);
        }
    });
}
