#include "platform/hostlink/SerialLayer.h"

#include <gtest/gtest.h>
#include <linux/major.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <termios.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <utility>

#include "platform/hostlink/HostLinkPort.h"
#include "support/LineKind.h"
#include "support/LinkLogCapture.h"
#include "support/Terminal.h"

using namespace std::chrono_literals;

namespace
{

using Layer = HostLinkPhysicalLayer;

/// The system's calls, but for what a test wants a device to say.
class ScriptedCalls : public DeviceCalls
{
public:
    int open(const std::string& path, int flags) override { return m_system->open(path, flags); }
    int ioctl(int descriptor, unsigned long request, std::uintptr_t argument) override
    {
        if (request == TIOCOUTQ && queued) {
            *reinterpret_cast<int*>(argument) = *queued;
            return 0;
        }
        if (request == TIOCGDEV && deviceNumber) {
            *reinterpret_cast<unsigned*>(argument) = *deviceNumber;
            return 0;
        }
        flushes += request == TCFLSH && argument == TCOFLUSH ? 1 : 0;
        return m_system->ioctl(descriptor, request, argument);
    }
    void close(int descriptor) override { m_system->close(descriptor); }

    std::optional<int> queued;            ///< bytes that the kernel has not sent
    std::optional<unsigned> deviceNumber; ///< of the terminal
    int flushes = 0;                      ///< times that what was not sent was thrown away

private:
    const std::shared_ptr<DeviceCalls> m_system = DeviceCalls::system();
};

termios settingsOf(const Terminal& terminal)
{
    termios settings{};
    const FileDescriptor device = terminal.openDevice();
    EXPECT_EQ(::tcgetattr(device.get(), &settings), 0);
    return settings;
}

bool isExclusive(const Terminal& terminal)
{
    int exclusive = 0;
    const FileDescriptor device = terminal.openDevice();
    EXPECT_EQ(::ioctl(device.get(), TIOCGEXCL, &exclusive), 0);
    return exclusive != 0;
}

class SerialLayerTest : public ::testing::Test
{
protected:
    SerialLayerTest() { m_properties.setString(Layer::Device, m_terminal.path()); }

    std::unique_ptr<Layer> makeLayer() const { return std::make_unique<SerialLayer>(m_properties, m_calls); }

    std::unique_ptr<Layer> openLayer() const
    {
        auto layer = makeLayer();
        layer->open(now());
        return layer;
    }

    /// Services at each time that the layer asks for, as far as `span` in the future.
    static int attemptsWithin(Layer& layer, HostLinkDuration span)
    {
        const HostLinkTime end = now() + span;
        int attempts = 0;
        while (layer.nextService() < end && attempts < 100'000) {
            layer.service(layer.nextService());
            ++attempts;
        }
        return attempts;
    }

    static bool goesDown(Layer& layer)
    {
        return serviceUntil({&layer}, [&] {
            readNow(layer);
            return layer.lineNumber() == 0;
        });
    }

    const TemporaryDirectory m_directory;
    Terminal m_terminal;
    Layer::Properties m_properties;
    const std::shared_ptr<ScriptedCalls> m_calls = std::make_shared<ScriptedCalls>();
};

/// The number of a real serial device, as TIOCGDEV gives it.
constexpr unsigned kRealDevice = unsigned(TTY_MAJOR) << 8 | 64;

} // namespace

TEST_F(SerialLayerTest, MakesTheDeviceARawLineWithoutFlowControl)
{
    const auto layer = openLayer();
    ASSERT_NE(layer->lineNumber(), 0u);
    const termios settings = settingsOf(m_terminal);
    EXPECT_EQ(settings.c_iflag, tcflag_t(IGNBRK));
    EXPECT_EQ(settings.c_oflag, 0u);
    EXPECT_EQ(settings.c_lflag, 0u);
    EXPECT_EQ(settings.c_cflag & (CSIZE | CREAD | CLOCAL), tcflag_t(CS8 | CREAD | CLOCAL));
    EXPECT_EQ(settings.c_cflag & (CRTSCTS | CSTOPB | PARENB | HUPCL), 0u);
    EXPECT_EQ(::cfgetospeed(&settings), speed_t(B115200));
}

TEST_F(SerialLayerTest, SetsTwoStopBits)
{
    m_properties.setInt(Layer::StopBits, 2);
    const auto layer = openLayer();
    EXPECT_NE(layer->lineNumber(), 0u);
    EXPECT_NE(settingsOf(m_terminal).c_cflag & CSTOPB, 0u);
}

TEST_F(SerialLayerTest, ADeviceWithoutParityGoesWithoutAndSaysSo)
{
    for (const char* parity : {"even", "odd"}) {
        const LinkLogCapture log;
        m_properties.setString(Layer::Parity, parity);
        const auto layer = openLayer();
        EXPECT_NE(layer->lineNumber(), 0u);
        // A pseudo-terminal keeps nothing but the kind of parity, and that errors are looked for.
        const termios settings = settingsOf(m_terminal);
        EXPECT_EQ((settings.c_cflag & PARODD) != 0, std::string(parity) == "odd");
        EXPECT_NE(settings.c_iflag & INPCK, 0u);
        EXPECT_EQ(log.count("no parity"), 1u);
    }
}

TEST_F(SerialLayerTest, PropertiesThatCannotBeAreSaidOnceAndNothingIsTried)
{
    using Set = std::function<void(Layer::Properties&)>;
    const std::pair<Set, const char*> kWrong[] = {
        {[](auto& p) { p.setString(Layer::Device, ""); }, "no device"},
        {[](auto& p) { p.setInt(Layer::BitRate, 0); }, "bit rate is positive, not 0"},
        {[](auto& p) { p.setInt(Layer::BitRate, -9600); }, "not -9600"},
        {[](auto& p) { p.setString(Layer::Parity, "mark"); }, "'mark'"},
        {[](auto& p) { p.setString(Layer::Parity, ""); }, "''"},
        {[](auto& p) { p.setInt(Layer::StopBits, 0); }, "not 0"},
        {[](auto& p) { p.setInt(Layer::StopBits, 3); }, "not 3"},
    };
    const Layer::Properties right = m_properties;
    for (const auto& [set, text] : kWrong) {
        const LinkLogCapture log;
        m_properties = right;
        set(m_properties);
        const auto layer = openLayer();
        layer->open(now());
        EXPECT_EQ(layer->nextService(), HostLinkTime::max()) << text;
        EXPECT_EQ(layer->lineNumber(), 0u);
        EXPECT_EQ(log.lines().size(), 1u) << text;
        EXPECT_EQ(log.count(text), 1u) << text;
    }
}

TEST_F(SerialLayerTest, WhatIsNoSerialDeviceIsSaidOnce)
{
    const std::string file = m_directory.file("file");
    std::ofstream(file) << "precious";
    for (const std::string& path : {file, std::string("/dev/null")}) {
        const LinkLogCapture log;
        m_properties.setString(Layer::Device, path);
        const auto layer = openLayer();
        attemptsWithin(*layer, 10s);
        EXPECT_EQ(layer->lineNumber(), 0u);
        EXPECT_EQ(log.count("serial:" + path + ": it is no serial device"), 1u);
        EXPECT_EQ(log.lines().size(), 1u);
    }
    EXPECT_EQ(std::filesystem::file_size(file), 8u);
}

TEST_F(SerialLayerTest, ADeviceThatIsMissingAtTheStartIsSaidOnceAndWaitedFor)
{
    const LinkLogCapture log;
    const std::string path = m_directory.file("tty");
    m_properties.setString(Layer::Device, path);
    const auto layer = openLayer();
    const int attempts = attemptsWithin(*layer, 1min);
    EXPECT_GE(attempts, 60);
    EXPECT_LE(attempts, 70);
    EXPECT_EQ(log.count("not there"), 1u);
    EXPECT_EQ(log.lines().size(), 1u);
    std::filesystem::create_symlink(m_terminal.path(), path);
    layer->service(layer->nextService());
    EXPECT_NE(layer->lineNumber(), 0u);
    EXPECT_TRUE(m_terminal.write({1, 0, 255}));
    EXPECT_TRUE(serviceUntil({layer.get()}, [&] { return readNow(*layer) == ByteArray{1, 0, 255}; }));
}

TEST_F(SerialLayerTest, ADeviceThatIsUnpluggedIsReadToItsEndThenSaidOnceAndTakenAgain)
{
    const LinkLogCapture log;
    const std::string path = m_directory.file("tty");
    m_properties.setString(Layer::Device, path);
    std::filesystem::create_symlink(m_terminal.path(), path);
    const auto layer = openLayer();
    const std::uint64_t number = layer->lineNumber();
    ASSERT_NE(number, 0u);

    std::filesystem::remove(path);
    m_terminal.hangUp();
    std::vector<pollfd> descriptors;
    layer->waitOn(descriptors, false);
    EXPECT_EQ(::poll(descriptors.data(), descriptors.size(), 10'000), 1);
    EXPECT_TRUE(goesDown(*layer));
    attemptsWithin(*layer, 10s);
    EXPECT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.count("not there"), 1u);
    EXPECT_EQ(layer->lineNumber(), 0u);
    descriptors.clear();
    layer->waitOn(descriptors, true);
    EXPECT_TRUE(descriptors.empty());

    const Terminal other;
    std::filesystem::create_symlink(other.path(), path);
    layer->service(layer->nextService());
    EXPECT_GT(layer->lineNumber(), number);
}

TEST_F(SerialLayerTest, AWriteToADeviceThatWasUnpluggedTakesItDown)
{
    const auto layer = openLayer();
    m_terminal.hangUp();
    const std::uint8_t byte = 1;
    EXPECT_EQ(layer->write(&byte, 1, now()), 0u);
    std::vector<pollfd> descriptors;
    layer->waitOn(descriptors, true);
    ASSERT_EQ(descriptors.size(), 1u);
    EXPECT_EQ(descriptors.front().events & POLLOUT, 0); // no use waiting for that
    EXPECT_TRUE(goesDown(*layer));
}

TEST_F(SerialLayerTest, EveryOutageIsSaidOnce)
{
    const LinkLogCapture log;
    const std::string path = m_directory.file("tty");
    m_properties.setString(Layer::Device, path);
    const auto layer = makeLayer();
    HostLinkTime time = now();
    layer->open(time);
    for (std::size_t i = 1; i <= 3; ++i) {
        EXPECT_EQ(log.lines().size(), i);
        Terminal terminal;
        std::filesystem::create_symlink(terminal.path(), path);
        time = layer->nextService();
        layer->service(time);
        ASSERT_NE(layer->lineNumber(), 0u);
        time += 1min;
        std::filesystem::remove(path);
        terminal.hangUp();
        std::uint8_t byte = 0;
        EXPECT_EQ(layer->read(&byte, 1, time), 0u);
        ASSERT_EQ(layer->lineNumber(), 0u);
    }
}

TEST_F(SerialLayerTest, ADeviceThatGoesAsSoonAsItComesIsNotHammeredNorTalkedAboutEachTime)
{
    const LinkLogCapture log;
    std::vector<Terminal> terminals(60);
    const std::string path = m_directory.file("tty");
    m_properties.setString(Layer::Device, path);
    const auto layer = makeLayer();
    HostLinkTime time = now();
    const HostLinkTime end = time + 30s;
    layer->open(time);
    int lines = 0;
    for (Terminal& terminal : terminals) {
        std::filesystem::remove(path);
        std::filesystem::create_symlink(terminal.path(), path);
        time = layer->nextService();
        if (time > end) {
            break;
        }
        layer->service(time);
        ASSERT_NE(layer->lineNumber(), 0u);
        ++lines;
        terminal.hangUp();
        std::uint8_t byte = 0;
        layer->read(&byte, 1, time);
        ASSERT_EQ(layer->lineNumber(), 0u);
    }
    EXPECT_GE(lines, 30);
    EXPECT_LE(lines, 40);
    EXPECT_EQ(log.lines().size(), 1u);
}

TEST_F(SerialLayerTest, ADeviceThatAnotherProgramLockedIsSaidOnceAndWaitedFor)
{
    const LinkLogCapture log;
    FileDescriptor other = m_terminal.openDevice();
    ASSERT_EQ(::flock(other.get(), LOCK_EX | LOCK_NB), 0);
    const termios before = settingsOf(m_terminal);
    const auto layer = openLayer();
    attemptsWithin(*layer, 10s);
    EXPECT_EQ(layer->lineNumber(), 0u);
    EXPECT_EQ(log.count("held by another program"), 1u);
    EXPECT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(settingsOf(m_terminal).c_lflag, before.c_lflag); // it was left as it is
    other.reset();
    layer->service(layer->nextService());
    EXPECT_NE(layer->lineNumber(), 0u);
}

TEST_F(SerialLayerTest, TwoLayersDoNotShareADevice)
{
    const LinkLogCapture log;
    auto first = openLayer();
    const auto second = openLayer();
    EXPECT_NE(first->lineNumber(), 0u);
    EXPECT_EQ(second->lineNumber(), 0u);
    EXPECT_EQ(log.count("held by another program"), 1u);
    first->close();
    second->service(second->nextService());
    EXPECT_NE(second->lineNumber(), 0u);
}

TEST_F(SerialLayerTest, ARealDeviceIsHeldExclusivelyUntilItIsClosed)
{
    m_calls->deviceNumber = kRealDevice;
    const auto layer = openLayer();
    EXPECT_NE(layer->lineNumber(), 0u);
    EXPECT_TRUE(isExclusive(m_terminal));
    layer->close();
    EXPECT_FALSE(isExclusive(m_terminal));
}

TEST_F(SerialLayerTest, ARealDeviceThatAnotherProgramHoldsExclusivelyIsWaitedFor)
{
    const LinkLogCapture log;
    m_calls->deviceNumber = kRealDevice;
    const FileDescriptor other = m_terminal.openDevice();
    ASSERT_EQ(::ioctl(other.get(), TIOCEXCL), 0);
    const auto layer = openLayer();
    attemptsWithin(*layer, 10s);
    EXPECT_EQ(layer->lineNumber(), 0u);
    EXPECT_EQ(log.count("held by another program"), 1u);
    EXPECT_EQ(log.lines().size(), 1u);
    ASSERT_EQ(::ioctl(other.get(), TIOCNXCL), 0);
    layer->service(layer->nextService());
    EXPECT_NE(layer->lineNumber(), 0u);
}

TEST_F(SerialLayerTest, APseudoTerminalIsNotLeftExclusiveByAProgramThatIsKilled)
{
    const auto layer = openLayer();
    EXPECT_NE(layer->lineNumber(), 0u);
    EXPECT_FALSE(isExclusive(m_terminal));
}

TEST_F(SerialLayerTest, WhatTheKernelHasNotSentIsUnsentAndLookedAtAgainWhenItShouldBeGone)
{
    const auto layer = openLayer();
    EXPECT_EQ(layer->unsent(), 0u);
    m_calls->queued = 400;
    const ByteArray frame(400, 1);
    const HostLinkTime start = now();
    EXPECT_EQ(layer->write(frame.data(), frame.size(), start), frame.size());
    EXPECT_EQ(layer->unsent(), 384u); // the last bytes are as good as sent
    const HostLinkDuration duration = layer->nextService() - start;
    EXPECT_GE(duration, 33ms); // 384 bytes of 10 bits at 115,200 bit/s
    EXPECT_LE(duration, 34ms);

    m_calls->queued = 100; // not as fast as it should be
    const HostLinkTime later = layer->nextService();
    layer->service(later);
    EXPECT_EQ(layer->unsent(), 84u);
    EXPECT_GT(layer->nextService(), later);
    EXPECT_LE(layer->nextService(), later + 8ms);

    m_calls->queued = 16;
    layer->service(layer->nextService());
    EXPECT_EQ(layer->unsent(), 0u);
    EXPECT_EQ(layer->nextService(), HostLinkTime::max());
}

TEST_F(SerialLayerTest, TheTimeOfAByteHasItsStopBitsAndParity)
{
    SerialSettings settings;
    settings.bitRate = 1000;
    EXPECT_EQ(settings.duration(2), 20ms);
    settings.stopBits = 2;
    EXPECT_EQ(settings.duration(2), 22ms);
    settings.parity = SerialSettings::Parity::Even;
    EXPECT_EQ(settings.duration(2), 24ms);
}

TEST_F(SerialLayerTest, ASecondFrameIsHeldBackUntilTheFirstIsOnTheWire)
{
    HostLinkPort port(std::make_unique<SerialLayer>(m_properties, m_calls));
    HostLinkTime time = now();
    m_calls->queued = 0;
    port.open(time);
    port.step(time); // a hello goes out
    m_calls->queued = 200;
    port.step(time); // and stays in the kernel
    const ByteArray hello = m_terminal.read();
    EXPECT_FALSE(hello.empty());
    EXPECT_TRUE(port.sending());
    for (int i = 0; i < 3; ++i) {
        time += 500ms; // the next hello is due
        port.step(time);
        EXPECT_EQ(m_terminal.read(), ByteArray());
        EXPECT_GT(port.deadline(), time);
        EXPECT_LE(port.deadline(), time + 20ms);
    }
    m_calls->queued = 0;
    port.step(time);
    EXPECT_EQ(m_terminal.read(), hello);
}

TEST_F(SerialLayerTest, ClosingDoesNotWaitForADeviceThatIsStuck)
{
    m_calls->queued = 5;
    const auto layer = openLayer();
    layer->close();
    EXPECT_EQ(m_calls->flushes, 1); // or the kernel would wait
}

TEST_F(SerialLayerTest, ClosingKeepsWhatIsOnTheWire)
{
    const auto layer = openLayer();
    const ByteArray bytes(5, 1);
    EXPECT_EQ(layer->write(bytes.data(), bytes.size(), now()), 5u);
    layer->close();
    EXPECT_EQ(m_terminal.read(), bytes);
    EXPECT_EQ(m_calls->flushes, 0);
}

TEST_F(SerialLayerTest, OpeningAnOpenLineChangesNothing)
{
    const auto layer = openLayer();
    const std::uint64_t number = layer->lineNumber();
    layer->open(now());
    EXPECT_EQ(layer->lineNumber(), number);
}
