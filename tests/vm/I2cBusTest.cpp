#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <numeric>

#include "platform/hostlink/ByteArray.h"
#include "platform/hostlink/FileDescriptor.h"
#include "vm/BusFixture.h"

using namespace std::chrono_literals;

namespace
{
constexpr const char* kDevice = "/dev/i2c-3";
constexpr int kAddress = 0x77;

ByteArray numbers(std::size_t size)
{
    ByteArray bytes(size);
    std::iota(bytes.begin(), bytes.end(), std::uint8_t(1));
    return bytes;
}
} // namespace

/// The bus itself, with a plain program for its master and a plain socket for its host.
class I2cBusDevice : public BusFixture
{
protected:
    void SetUp() override
    {
        startBus();
        openDevice();
    }

    void openDevice()
    {
        m_device = FileDescriptor(::open(kDevice, O_RDWR | O_CLOEXEC));
        ASSERT_TRUE(m_device) << std::strerror(errno);
    }

    void connectHost()
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strcpy(address.sun_path, linkSocket().c_str());
        m_host = FileDescriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        ASSERT_EQ(::connect(m_host.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    }

    void hostSends(const ByteArray& bytes)
    {
        ASSERT_EQ(::send(m_host.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL), ssize_t(bytes.size()));
    }

    ByteArray hostReceives(std::size_t size)
    {
        const timeval patience{10, 0};
        ::setsockopt(m_host.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        ByteArray bytes(size);
        EXPECT_EQ(::recv(m_host.get(), bytes.data(), size, MSG_WAITALL), ssize_t(size));
        return bytes;
    }

    /// One transfer; what errno is after it, 0 when it succeeded.
    int transfer(int address, bool isRead, ByteArray& bytes)
    {
        i2c_msg message{};
        message.addr = static_cast<std::uint16_t>(address);
        message.flags = isRead ? I2C_M_RD : 0;
        message.len = static_cast<std::uint16_t>(bytes.size());
        message.buf = bytes.data();
        i2c_rdwr_ioctl_data request{&message, 1};
        return ::ioctl(m_device.get(), I2C_RDWR, &request) == 1 ? 0 : errno;
    }

    int write(ByteArray bytes, int address = kAddress) { return transfer(address, false, bytes); }

    ByteArray read(std::size_t size)
    {
        ByteArray bytes(size);
        EXPECT_EQ(transfer(kAddress, true, bytes), 0);
        return bytes;
    }

    /// The error of a read of so many bytes.
    int readError(std::size_t size, int address = kAddress)
    {
        ByteArray bytes(size);
        return transfer(address, true, bytes);
    }

    FileDescriptor m_device;
    FileDescriptor m_host;
};

TEST_F(I2cBusDevice, DoesPlainTransfers)
{
    unsigned long abilities = 0;
    EXPECT_EQ(::ioctl(m_device.get(), I2C_FUNCS, &abilities), 0);
    EXPECT_TRUE(abilities & I2C_FUNC_I2C);
    EXPECT_EQ(::ioctl(m_device.get(), I2C_SMBUS, 0), -1);
    EXPECT_EQ(errno, ENOTTY);
}

TEST_F(I2cBusDevice, AddressIsAcknowledgedWhileAHostIsThere)
{
    EXPECT_EQ(readError(1), ENXIO);
    connectHost();
    EXPECT_EQ(readError(1), 0);
    EXPECT_EQ(readError(1, kAddress - 1), ENXIO);
    EXPECT_EQ(write({0}, kAddress - 1), ENXIO);
    EXPECT_EQ(write({0}), 0);
    m_host.reset();
    EXPECT_EQ(readError(1), ENXIO);
}

TEST_F(I2cBusDevice, ReadBeginsWithTheCountAndTakesWhatFollows)
{
    connectHost();
    EXPECT_EQ(read(1), ByteArray{0});
    hostSends({11, 12, 13});
    EXPECT_EQ(read(1), ByteArray{3});
    EXPECT_EQ(read(1), ByteArray{3}) << "asking takes nothing";
    EXPECT_EQ(read(3), (ByteArray{3, 11, 12}));
    hostSends({14});
    EXPECT_EQ(read(2), (ByteArray{2, 13}));
    EXPECT_EQ(read(2), (ByteArray{1, 14}));
    EXPECT_EQ(read(1), ByteArray{0});
    EXPECT_EQ(report().breaches, "");
}

TEST_F(I2cBusDevice, CountIsAtMost254)
{
    connectHost();
    hostSends(numbers(300));
    EXPECT_EQ(read(1), ByteArray{254});
    EXPECT_EQ(read(64).front(), 254);
    EXPECT_EQ(read(1), ByteArray{300 - 63});
}

TEST_F(I2cBusDevice, WhatTheLastHostSaidIsReadBeforeItIsGone)
{
    connectHost();
    hostSends({11, 12});
    m_host.reset();
    EXPECT_EQ(read(1), ByteArray{2});
    EXPECT_EQ(read(3), (ByteArray{2, 11, 12}));
    EXPECT_EQ(readError(1), ENXIO);
}

TEST_F(I2cBusDevice, WriteReachesTheHost)
{
    connectHost();
    EXPECT_EQ(write(numbers(64)), 0);
    EXPECT_EQ(hostReceives(64), numbers(64));
}

TEST_F(I2cBusDevice, HostThatDoesNotReadHoldsTheBusUntilItDoes)
{
    constexpr int kWrites = 100; // more than the socket takes
    connectHost();
    const pid_t writer = ::fork();
    if (writer == 0) {
        int failed = 0;
        for (int i = 0; i < kWrites; ++i) {
            failed += write(ByteArray(64, std::uint8_t(i))) != 0;
        }
        ::_exit(failed);
    }
    while (report().writes < kWrites / 4) {
    }
    for (int i = 0; i < kWrites; ++i) {
        ASSERT_EQ(hostReceives(64), ByteArray(64, std::uint8_t(i)));
    }
    int status = -1;
    EXPECT_EQ(::waitpid(writer, &status, 0), writer);
    EXPECT_EQ(status, 0);
}

TEST_F(I2cBusDevice, ReadAndWriteUseTheAddressThatWasSet)
{
    connectHost();
    hostSends({11});
    std::uint8_t bytes[2] = {};
    EXPECT_EQ(::read(m_device.get(), bytes, 1), -1) << "no address yet";
    EXPECT_EQ(::ioctl(m_device.get(), I2C_SLAVE, kAddress), 0);
    EXPECT_EQ(::read(m_device.get(), bytes, 1), 1);
    EXPECT_EQ(::read(m_device.get(), bytes, 2), 2);
    EXPECT_EQ(bytes[0], 1);
    EXPECT_EQ(bytes[1], 11);
    EXPECT_EQ(::write(m_device.get(), "\0x", 2), 2);
    EXPECT_EQ(hostReceives(2), (ByteArray{0, 'x'}));
}

TEST_F(I2cBusDevice, Refuses)
{
    connectHost();
    hostSends({11});
    bus("refuse");
    EXPECT_EQ(readError(1), ENXIO);
    EXPECT_EQ(write({0, 1}), ENXIO);
    bus("heal");
    EXPECT_EQ(read(1), ByteArray{1}) << "nothing was lost";
    EXPECT_EQ(write({0, 2}), 0);
    EXPECT_EQ(hostReceives(2), (ByteArray{0, 2})) << "nothing of the refused write came";
}

TEST_F(I2cBusDevice, EveryThirdTransferHasTheFault)
{
    connectHost();
    bus("refuse every 3");
    for (int i = 1; i <= 9; ++i) {
        EXPECT_EQ(readError(1), i % 3 == 0 ? ENXIO : 0) << i;
    }
}

TEST_F(I2cBusDevice, StallsAndGoesOn)
{
    connectHost();
    bus("stall 60");
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(write({1, 2}), 0);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 60ms);
    EXPECT_EQ(hostReceives(2), (ByteArray{1, 2}));
}

TEST_F(I2cBusDevice, StallBeyondTheTimeoutFailsHalfway)
{
    connectHost();
    EXPECT_EQ(::ioctl(m_device.get(), I2C_TIMEOUT, 2), 0);
    EXPECT_EQ(report().timeout, 20);
    bus("stall 5000");
    EXPECT_EQ(write({1, 2, 3, 4}), ETIMEDOUT);
    bus("heal");
    EXPECT_EQ(write({0, 9}), 0);
    EXPECT_EQ(hostReceives(4), (ByteArray{1, 2, 0, 9}));
}

TEST_F(I2cBusDevice, CutWriteHasReachedTheHostInPart)
{
    connectHost();
    bus("cut 3");
    EXPECT_EQ(write({1, 2, 3}), 0);
    EXPECT_EQ(write({4, 5, 6, 7}), EREMOTEIO);
    bus("heal");
    EXPECT_EQ(write({0}), 0);
    EXPECT_EQ(hostReceives(7), (ByteArray{1, 2, 3, 4, 5, 6, 0}));
}

TEST_F(I2cBusDevice, CutReadHasTakenWhatWasClocked)
{
    connectHost();
    hostSends({11, 12, 13, 14});
    EXPECT_EQ(read(1), ByteArray{4});
    bus("cut 3");
    EXPECT_EQ(readError(5), EREMOTEIO);
    EXPECT_EQ(read(1), ByteArray{2});
    EXPECT_EQ(read(3), (ByteArray{2, 13, 14}));
}

TEST_F(I2cBusDevice, FloatingLineReadsAsOnes)
{
    connectHost();
    hostSends({11});
    bus("float");
    EXPECT_EQ(read(1), ByteArray{0xff});
    bus("heal");
    EXPECT_EQ(read(1), ByteArray{1});
    EXPECT_EQ(read(2), (ByteArray{1, 11})) << "the host has not noticed";
}

TEST_F(I2cBusDevice, VanishesForAllAndComesBack)
{
    connectHost();
    EXPECT_EQ(readError(1), 0);
    bus("vanish");
    EXPECT_NE(::access(kDevice, F_OK), 0);
    EXPECT_NE(readError(1), 0) << "for one who had it open as well";
    hostSends({11});
    bus("appear");
    EXPECT_NE(readError(1), 0);
    openDevice();
    EXPECT_EQ(read(1), ByteArray{1});
}

TEST_F(I2cBusDevice, VanishesFromUnderATransfer)
{
    connectHost();
    bus("stall 900");
    const pid_t other = ::fork();
    if (other == 0) {
        ::_exit(readError(1));
    }
    while (report().reads == 0) {
    }
    bus("vanish");
    int status = -1;
    EXPECT_EQ(::waitpid(other, &status, 0), other);
    EXPECT_TRUE(WIFEXITED(status));
}

TEST_F(I2cBusDevice, NotesWhatAMasterMustNotDo)
{
    connectHost();
    hostSends(numbers(200));
    EXPECT_EQ(write(ByteArray(65, 1)), EREMOTEIO);
    EXPECT_EQ(write({1}), 0);
    EXPECT_EQ(readError(3), 0);
    EXPECT_EQ(readError(1), 0);
    EXPECT_EQ(readError(65), EREMOTEIO);
    EXPECT_EQ(report().breaches, "breach: a write of 65 bytes\n"
                                 "breach: a write without a zero after a transfer that failed\n"
                                 "breach: a read of 3 bytes, where the master knew of 0\n"
                                 "breach: a read of 65 bytes, where the master knew of 198\n");
}

TEST_F(I2cBusDevice, SaysWhatItDoesNotUnderstand)
{
    for (const char* line : {"refuse every", "refuse each 3", "stall", "cut 0", "nonsense", ""}) {
        m_bus->type(std::string(line) + "\n");
        EXPECT_NE(m_bus->nextLineWith("error " + std::string(line) + ": "), "");
    }
}
