#include "modules/hostlink/UInputHandler.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/hostlink/HostLinkValueMessage.h"
#include "support/LogCapture.h"

namespace
{

using Bytes = std::vector<std::uint8_t>;
using Texts = std::vector<std::string>;

// Requests of the kernel's uinput interface.
constexpr unsigned long kCreate = 0x5501;
constexpr unsigned long kDestroy = 0x5502;
constexpr unsigned long kSetEventType = 0x40045564;
constexpr unsigned long kSetKey = 0x40045565;

constexpr int kDescriptor = 17;

/// A kernel that notes what it is asked.
class NotedKernel : public UInputSystem
{
public:
    int open(const char* path, int flags) override
    {
        m_calls.push_back("open " + std::string(path) + " " + std::to_string(flags));
        return m_available ? kDescriptor : -1;
    }

    int ioctl(int descriptor, unsigned long request, int argument) override
    {
        EXPECT_EQ(descriptor, kDescriptor);
        m_calls.push_back("ioctl " + std::to_string(request) + " " + std::to_string(argument));
        return m_ioctlResult;
    }

    std::ptrdiff_t write(int descriptor, const void* bytes, std::size_t size) override
    {
        EXPECT_EQ(descriptor, kDescriptor);
        const auto* first = static_cast<const std::uint8_t*>(bytes);
        m_written.emplace_back(first, first + size);
        m_calls.push_back("write " + std::to_string(size));
        return m_writeResult.value_or(static_cast<std::ptrdiff_t>(size));
    }

    int close(int descriptor) override
    {
        EXPECT_EQ(descriptor, kDescriptor);
        m_calls.push_back("close");
        return 0;
    }

    bool m_available = true;
    int m_ioctlResult = 0;
    std::optional<std::ptrdiff_t> m_writeResult; ///< nothing: all is written
    Texts m_calls;
    std::vector<Bytes> m_written;
};

std::string ioctlCall(unsigned long request, int argument)
{
    return "ioctl " + std::to_string(request) + " " + std::to_string(argument);
}

/// The record of an event, on a little-endian machine.
Bytes event(std::uint8_t type, std::uint8_t codeLow, std::uint8_t codeHigh, std::uint8_t value)
{
    Bytes record(24, 0);
    record[16] = type;
    record[18] = codeLow;
    record[19] = codeHigh;
    record[20] = value;
    return record;
}

const Bytes kSynchronisation(24, 0);

class UInputHandlerTest : public ::testing::Test
{
protected:
    /// The handler, with nothing noted yet of what comes after its set-up.
    UInputHandler& make()
    {
        m_handler = std::make_unique<UInputHandler>(nullptr, m_kernel);
        m_kernel.m_calls.clear();
        m_kernel.m_written.clear();
        m_log.clear();
        return *m_handler;
    }

    static ByteArray keys(std::initializer_list<std::pair<int, int>> actionsAndKeys)
    {
        HostLinkValueMessage message(MSG_InputEvent);
        for (const auto& [action, key] : actionsAndKeys) {
            message.addValueUint16(static_cast<std::uint16_t>(action), static_cast<std::uint16_t>(key));
        }
        return message.serialize();
    }

    NotedKernel m_kernel;
    std::unique_ptr<UInputHandler> m_handler;
    LogCapture m_log;
};

TEST_F(UInputHandlerTest, RegistersAKeyboardWithAllKeys)
{
    const UInputHandler handler(nullptr, m_kernel);
    Texts expected{"open /dev/uinput " + std::to_string(O_WRONLY | O_NONBLOCK), ioctlCall(kSetEventType, 1)};
    for (int key = 0; key <= 767; ++key) {
        expected.push_back(ioctlCall(kSetKey, key));
    }
    expected.insert(expected.end(), {"write 1116", ioctlCall(kCreate, 0)});
    EXPECT_EQ(m_kernel.m_calls, expected);
    EXPECT_EQ(m_log.infos(), Texts{"Uinput device registered"});
    EXPECT_TRUE(m_log.errors().empty());
}

TEST_F(UInputHandlerTest, ItsDescriptionIsANameAlone)
{
    const UInputHandler handler(nullptr, m_kernel);
    Bytes expected(1116, 0);
    const std::string name = "hostlink";
    std::copy(name.begin(), name.end(), expected.begin());
    EXPECT_EQ(m_kernel.m_written, std::vector<Bytes>{expected});
}

TEST_F(UInputHandlerTest, ADescriptionCutShortIsLoggedAndTheDeviceStillCreated)
{
    m_kernel.m_writeResult = 1115;
    const UInputHandler handler(nullptr, m_kernel);
    EXPECT_EQ(m_log.errors(), Texts{"Cannot write uidev do uintput"});
    EXPECT_EQ(m_kernel.m_calls.back(), ioctlCall(kCreate, 0));
    EXPECT_EQ(m_log.infos(), Texts{"Uinput device registered"});
}

TEST_F(UInputHandlerTest, WhetherTheDeviceWasCreatedIsNotLookedAt)
{
    m_kernel.m_ioctlResult = -1;
    const UInputHandler handler(nullptr, m_kernel);
    EXPECT_EQ(m_log.infos(), Texts{"Uinput device registered"});
    EXPECT_TRUE(m_log.errors().empty());
}

TEST_F(UInputHandlerTest, WithoutUInputKeysAreTakenAndDropped)
{
    m_kernel.m_available = false;
    UInputHandler handler(nullptr, m_kernel);
    EXPECT_EQ(m_log.errors(),
              Texts{"Uinput not available - do you have CONFIG_INPUT_UINPUT in your kernel?"});
    EXPECT_TRUE(m_log.infos().empty());
    m_log.clear();

    EXPECT_TRUE(handler.handleMessage(MSG_InputEvent, keys({{1, 115}})));
    EXPECT_TRUE(handler.inputEvent(1, 115));
    handler.inputEventSyn();
    handler.shutdown();
    EXPECT_EQ(m_kernel.m_calls.size(), 1U) << "the open alone";
    EXPECT_TRUE(m_log.errors().empty());
}

TEST_F(UInputHandlerTest, KeysOfOneMessageAreOneFrameOfEvents)
{
    UInputHandler& handler = make();
    EXPECT_TRUE(handler.handleMessage(MSG_InputEvent, keys({{1, 115}, {0, 115}})));
    const std::vector<Bytes> expected{event(1, 115, 0, 1), event(1, 115, 0, 0), kSynchronisation};
    EXPECT_EQ(m_kernel.m_written, expected);
    const Texts lines{"Received input event", "received input event, key: 115 key action: 1",
                      "received input event, key: 115 key action: 0"};
    EXPECT_EQ(m_log.debugs(), lines);
}

TEST_F(UInputHandlerTest, AsManyKeysAsAMessageHoldsAreOneFrameToo)
{
    constexpr int kKeys = 13'000; // 65,002 bytes, about what the link lets a host send at once
    UInputHandler& handler = make();
    HostLinkValueMessage message(MSG_InputEvent);
    for (int i = 0; i < kKeys; ++i) {
        message.addValueUint16(1, std::uint16_t(i % 768));
    }
    EXPECT_TRUE(handler.handleMessage(MSG_InputEvent, message.serialize()));
    ASSERT_EQ(m_kernel.m_written.size(), std::size_t(kKeys) + 1);
    EXPECT_EQ(m_kernel.m_written[kKeys - 1], event(1, (kKeys - 1) % 768 % 256, (kKeys - 1) % 768 / 256, 1));
    EXPECT_EQ(m_kernel.m_written[kKeys], kSynchronisation);
    EXPECT_EQ(std::count(m_kernel.m_written.begin(), m_kernel.m_written.end(), kSynchronisation), 1);
}

TEST_F(UInputHandlerTest, EveryActionButOneIsARelease)
{
    UInputHandler& handler = make();
    handler.handleMessage(MSG_InputEvent, keys({{2, 30}, {65535, 31}, {257, 32}}));
    const std::vector<Bytes> expected{event(1, 30, 0, 0), event(1, 31, 0, 0), event(1, 32, 0, 0),
                                      kSynchronisation};
    EXPECT_EQ(m_kernel.m_written, expected);
}

TEST_F(UInputHandlerTest, AKeyCodeIsWrittenWithAllItsBits)
{
    UInputHandler& handler = make();
    handler.handleMessage(MSG_InputEvent, keys({{1, 767}, {1, 65535}}));
    const std::vector<Bytes> expected{event(1, 0xFF, 0x02, 1), event(1, 0xFF, 0xFF, 1), kSynchronisation};
    EXPECT_EQ(m_kernel.m_written, expected);
}

TEST_F(UInputHandlerTest, AnEmptyMessageIsTakenAndWritesNothing)
{
    UInputHandler& handler = make();
    EXPECT_TRUE(handler.handleMessage(MSG_InputEvent, keys({})));
    EXPECT_TRUE(m_kernel.m_calls.empty());
}

TEST_F(UInputHandlerTest, AValueThatIsNoKeyCodeIsKeyZero)
{
    UInputHandler& handler = make();
    HostLinkValueMessage message(MSG_InputEvent);
    message.addValueUint8(1, 115);
    EXPECT_TRUE(handler.handleMessage(MSG_InputEvent, message.serialize()));
    const std::vector<Bytes> expected{event(1, 0, 0, 1), kSynchronisation};
    EXPECT_EQ(m_kernel.m_written, expected);
}

TEST_F(UInputHandlerTest, OtherMessagesAreNotTaken)
{
    UInputHandler& handler = make();
    for (const int id : {1, 2, 5, 7, 8, 9, 0x8006}) {
        EXPECT_FALSE(handler.handleMessage(MessageId(id), keys({{1, 115}})));
    }
    EXPECT_TRUE(m_kernel.m_calls.empty());
    EXPECT_TRUE(m_log.debugs().empty());
}

TEST_F(UInputHandlerTest, EventsCutShortAreLogged)
{
    UInputHandler& handler = make();
    m_kernel.m_writeResult = 23;
    EXPECT_FALSE(handler.inputEvent(1, 115));
    EXPECT_EQ(m_log.errors(), Texts{"Cannot write input event to uintput"});
    m_log.clear();
    handler.inputEventSyn();
    EXPECT_EQ(m_log.errors(), Texts{"Cannot write syn input event to uintput"});
}

TEST_F(UInputHandlerTest, AFailedKeyDoesNotKeepTheOthersFromBeingWritten)
{
    UInputHandler& handler = make();
    m_kernel.m_writeResult = -1;
    EXPECT_TRUE(handler.handleMessage(MSG_InputEvent, keys({{1, 30}, {1, 31}})));
    EXPECT_EQ(m_kernel.m_written.size(), 3U);
    const Texts errors{"Cannot write input event to uintput", "Cannot write input event to uintput",
                       "Cannot write syn input event to uintput"};
    EXPECT_EQ(m_log.errors(), errors);
}

TEST_F(UInputHandlerTest, AWrittenEventIsASuccess)
{
    EXPECT_TRUE(make().inputEvent(1, 115));
    EXPECT_TRUE(m_log.errors().empty());
}

TEST_F(UInputHandlerTest, AShutdownRemovesTheDeviceOnce)
{
    UInputHandler& handler = make();
    handler.shutdown();
    handler.shutdown();
    EXPECT_EQ(m_kernel.m_calls, (Texts{ioctlCall(kDestroy, 0), "close"}));
}

TEST_F(UInputHandlerTest, AfterAShutdownKeysAreTakenAndDropped)
{
    UInputHandler& handler = make();
    handler.shutdown();
    m_kernel.m_calls.clear();
    EXPECT_TRUE(handler.handleMessage(MSG_InputEvent, keys({{1, 115}})));
    EXPECT_TRUE(handler.inputEvent(1, 115));
    EXPECT_TRUE(m_kernel.m_calls.empty());
}

TEST_F(UInputHandlerTest, TheDeviceGoesWithItsHandler)
{
    make();
    m_handler.reset();
    EXPECT_EQ(m_kernel.m_calls, (Texts{ioctlCall(kDestroy, 0), "close"}));
}

} // namespace
