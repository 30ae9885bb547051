#include "vm/i2c-bus/CuseI2cDevice.h"

#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <numeric>
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

std::size_t sizeOf(const std::vector<iovec>& parts)
{
    return std::accumulate(parts.begin(), parts.end(), std::size_t(0),
                           [](std::size_t sum, const iovec& part) { return sum + part.iov_len; });
}

/// The call comes again, with this memory of the caller copied in and room for this copied out.
void askFor(fuse_req_t request, const std::vector<iovec>& in, const std::vector<iovec>& out)
{
    fuse_reply_ioctl_retry(request, in.data(), in.size(), out.data(), out.size());
}
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
        const I2cOutcome outcome = device.transfer({device.m_address[file->fh], true, size, {}});
        device.answer(outcome.duration, request, [request, outcome] {
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
            device.transfer({device.m_address[file->fh], false, size, ByteArray(bytes, bytes + size)});
        device.answer(outcome.duration, request, [request, size, error = outcome.error] {
            if (error != 0) {
                fuse_reply_err(request, error);
            } else {
                fuse_reply_write(request, size);
            }
        });
    }

    static void ioctl(fuse_req_t request, int command, void* argument, fuse_file_info* file, unsigned flags,
                      const void* in, std::size_t inSize, std::size_t outSize)
    {
        if (flags & FUSE_IOCTL_COMPAT) {
            fuse_reply_err(request, ENOSYS);
            return;
        }
        deviceOf(request).control(request, unsigned(command), argument, file, in, inSize, outSize);
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
    return m_session && !m_busyWith ? fuse_session_fd(m_session) : -1;
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
    if (m_busyWith && now >= m_busyUntil) {
        m_busyWith = nullptr;
        m_busyUntil = HostLinkTime::max();
        m_reply();
    }
}

void CuseI2cDevice::answer(HostLinkDuration after, fuse_req_t request, std::function<void()> reply)
{
    if (after == HostLinkDuration::zero()) {
        reply();
        return;
    }
    m_busyWith = request;
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

void CuseI2cDevice::control(fuse_req_t request, unsigned command, void* argument, fuse_file_info* file,
                            const void* in, std::size_t inSize, std::size_t outSize)
{
    static constexpr unsigned long kAbilities = I2C_FUNC_I2C;
    const auto number = reinterpret_cast<std::uintptr_t>(argument);
    switch (command) {
    case I2C_SLAVE:
    case I2C_SLAVE_FORCE: m_address[file->fh] = int(number); break;
    case I2C_TIMEOUT: m_bus.setTimeout(kTimeoutUnit * number); break;
    case I2C_RETRIES: break;
    case I2C_FUNCS:
        if (outSize < sizeof kAbilities) {
            askFor(request, {}, {{argument, sizeof kAbilities}});
        } else {
            fuse_reply_ioctl(request, 0, &kAbilities, sizeof kAbilities);
        }
        return;
    case I2C_RDWR:
        transferMessages(request, argument, static_cast<const std::uint8_t*>(in), inSize, outSize);
        return;
    default: fuse_reply_err(request, ENOTTY); return;
    }
    fuse_reply_ioctl(request, 0, nullptr, 0);
}

/// The caller's memory comes in steps: the record, then the messages that it points to, then their bytes.
void CuseI2cDevice::transferMessages(fuse_req_t request, void* argument, const std::uint8_t* in,
                                     std::size_t inSize, std::size_t outSize)
{
    i2c_rdwr_ioctl_data record{};
    std::vector<iovec> inputs{{argument, sizeof record}};
    if (inSize < sizeOf(inputs)) {
        askFor(request, inputs, {});
        return;
    }
    std::memcpy(&record, in, sizeof record);
    if (record.nmsgs == 0 || record.nmsgs > I2C_RDWR_IOCTL_MAX_MSGS) {
        fuse_reply_err(request, EINVAL);
        return;
    }
    std::vector<i2c_msg> messages(record.nmsgs);
    inputs.push_back({record.msgs, messages.size() * sizeof(i2c_msg)});
    if (inSize < sizeOf(inputs)) {
        askFor(request, inputs, {});
        return;
    }
    std::memcpy(messages.data(), in + sizeof record, messages.size() * sizeof(i2c_msg));
    const std::uint8_t* written = in + sizeOf(inputs);
    std::vector<iovec> outputs;
    for (const i2c_msg& message : messages) {
        if (message.len > kLongestMessage) {
            fuse_reply_err(request, EINVAL);
            return;
        }
        (message.flags & I2C_M_RD ? outputs : inputs).push_back({message.buf, message.len});
    }
    if (inSize < sizeOf(inputs) || outSize < sizeOf(outputs)) {
        askFor(request, inputs, outputs);
        return;
    }

    I2cOutcome all;
    for (const i2c_msg& message : messages) {
        const bool isRead = (message.flags & I2C_M_RD) != 0;
        I2cTransfer part{message.addr, isRead, message.len, {}};
        if (!isRead) {
            part.bytes.assign(written, written + message.len);
            written += message.len;
        }
        const I2cOutcome outcome = transfer(part);
        all.duration += outcome.duration;
        all.error = outcome.error;
        all.bytes.insert(all.bytes.end(), outcome.bytes.begin(), outcome.bytes.end());
        if (all.error != 0) {
            break;
        }
    }
    answer(all.duration, request, [request, all, count = int(messages.size())] {
        if (all.error != 0) {
            fuse_reply_err(request, all.error);
        } else {
            fuse_reply_ioctl(request, count, all.bytes.data(), all.bytes.size());
        }
    });
}
