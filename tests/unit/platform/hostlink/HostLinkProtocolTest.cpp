#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "platform/hostlink/HexText.h"
#include "platform/hostlink/HostLinkPort.h"
#include "platform/hostlink/HostLinkUInt16Message.h"
#include "platform/hostlink/HostLinkValueMessage.h"
#include "support/I2cBus.h"
#include "support/LinkMessages.h"
#include "vocabulary/States.h"

using namespace std::chrono_literals;

namespace
{

/// The lines of docs/protocol.md that show bytes, "WORD HEX" each, with one of two words, in its order.
std::vector<std::string> documentedBytes(const std::string& one, const std::string& other)
{
    std::ifstream document(HOSTLINK_SOURCE_DIR "/docs/protocol.md");
    std::vector<std::string> found;
    std::string line;
    while (std::getline(document, line)) {
        if (line.compare(0, 4, "    ") != 0) {
            continue;
        }
        std::istringstream words(line);
        std::string word;
        std::string byte;
        words >> word;
        std::string hex;
        bool isHex = true;
        while (words >> byte) {
            isHex =
                isHex && byte.size() == 2 && byte.find_first_not_of("0123456789abcdef") == std::string::npos;
            hex += byte;
        }
        if ((word == one || word == other) && isHex && !hex.empty()) {
            found.push_back(word + ' ' + hex);
        }
    }
    return found;
}

HostLinkCore::Settings settingsOf(std::uint64_t instance)
{
    HostLinkCore::Settings settings;
    settings.drawInstance = [instance] { return instance; };
    return settings;
}

constexpr std::uint64_t kModule = 0x0102030405060708;
constexpr std::uint64_t kHost = 0x1112131415161718;

ByteArray volumeReply()
{
    HostLinkValueMessage reply(MSG_GetStateResponse);
    reply.addValueUint8(STA_Volume, 40);
    return reply.serialize();
}

class Conversation
{
public:
    Conversation() : module(settingsOf(kModule)), host(settingsOf(kHost)) {}

    /// Carries everything that the two have to say now.
    void exchange()
    {
        while (carry("module", module, host) || carry("host", host, module)) {
        }
    }

    ByteArray receive(HostLinkCore& end)
    {
        ByteArray message;
        EXPECT_TRUE(end.take(message));
        end.handled();
        return message;
    }

    HostLinkCore module;
    HostLinkCore host;
    HostLinkTime now{1h};
    std::vector<std::string> frames;

private:
    bool carry(const char* who, HostLinkCore& from, HostLinkCore& to)
    {
        const HostLinkCore::Bytes frame = from.transmit(now);
        if (frame.size == 0) {
            return false;
        }
        frames.push_back(std::string(who) + ' ' + hexText(ByteArray(frame.data, frame.data + frame.size)));
        to.receive(frame.data, frame.size, now);
        return true;
    }
};

TEST(HostLinkProtocol, TheDocumentedConversationIsWhatTheLinkSays)
{
    Conversation link;
    link.module.lineUp(link.now);
    link.host.lineUp(link.now);
    link.exchange();

    ASSERT_TRUE(link.host.send(volumeRequest(), link.now));
    link.exchange();
    EXPECT_EQ(link.receive(link.module), volumeRequest());

    ASSERT_TRUE(link.module.send(volumeReply(), link.now));
    link.exchange();
    EXPECT_EQ(link.receive(link.host), volumeReply());

    link.now += 5ms;
    link.exchange();
    link.host.goodbye(link.now);
    link.exchange();
    link.frames.push_back("module " + hexText(HostLinkCore::refusalFrame()));

    EXPECT_EQ(documentedBytes("module", "host"), link.frames);
}

ByteArray stateChanged(State state, std::uint8_t value)
{
    HostLinkValueMessage message(MSG_StateChanged);
    message.addValueUint8(state, value);
    return message.serialize();
}

TEST(HostLinkProtocol, TheDocumentedRepairsAreWhatTheLinkDoes)
{
    HostLinkCore::Settings small = settingsOf(kHost);
    small.creditBytes[0] = small.creditBytes[1] = 64;
    HostLinkCore module(settingsOf(kModule));
    HostLinkCore host(small);
    HostLinkTime now(1h);
    std::vector<std::string> frames;
    bool isLossy = false;
    const auto carry = [&](HostLinkCore& from, HostLinkCore& to) {
        const HostLinkCore::Bytes frame = from.transmit(now);
        if (frame.size == 0) {
            return false;
        }
        frames.push_back((&from == &module ? "sender " : "receiver ")
                         + hexText(ByteArray(frame.data, frame.data + frame.size)));
        if (!isLossy) {
            to.receive(frame.data, frame.size, now);
        }
        return true;
    };
    const auto exchange = [&] {
        while (carry(module, host) || carry(host, module)) {
        }
    };
    const auto take = [&](const ByteArray& expected) {
        ByteArray message;
        EXPECT_TRUE(host.take(message));
        EXPECT_EQ(message, expected);
        host.handled();
    };
    module.lineUp(now);
    host.lineUp(now);
    exchange();
    frames.clear();

    isLossy = true;
    ASSERT_TRUE(module.send(stateChanged(STA_Volume, 41), now));
    exchange();
    isLossy = false;
    ASSERT_TRUE(module.send(stateChanged(STA_Mute, 1), now));
    exchange();
    take(stateChanged(STA_Volume, 41));
    take(stateChanged(STA_Mute, 1));
    exchange();
    now += 5ms;
    exchange();

    isLossy = true;
    ASSERT_TRUE(module.send(stateChanged(STA_Volume, 42), now));
    exchange();
    isLossy = false;
    EXPECT_EQ(module.deadline(), now + 200ms);
    now = module.deadline();
    exchange();
    take(stateChanged(STA_Volume, 42));
    exchange();
    now += 5ms;
    exchange();
    now += 1250ms;
    exchange();

    EXPECT_EQ(documentedBytes("sender", "receiver"), frames);
}

TEST(HostLinkProtocol, TheDocumentedTransfersAreWhatGoesOverABus)
{
    const auto bus = std::make_shared<I2cBus>();
    HostLinkPort module(I2cBus::moduleEnd(bus), settingsOf(kModule));
    HostLinkPort host(I2cBus::hostEnd(bus), settingsOf(kHost));
    HostLinkTime now(1h);
    ByteArray message;
    const auto step = [&] {
        module.step(now);
        host.step(now);
    };
    const auto stepUntilQuiet = [&] {
        do {
            step();
        } while (module.deadline() <= now);
    };

    host.open(now);
    module.open(now);
    stepUntilQuiet();
    ASSERT_TRUE(host.core().send(volumeRequest(), now));
    host.flush(now);
    stepUntilQuiet();
    ASSERT_TRUE(module.core().take(message));
    EXPECT_EQ(message, volumeRequest());
    module.core().handled();
    ASSERT_TRUE(module.core().send(volumeReply(), now));
    module.flush(now);
    host.step(now);

    std::vector<std::string> transfers;
    for (const I2cBus::Transfer& transfer : bus->transfers()) {
        transfers.push_back((transfer.isRead ? "read " : "write ") + hexText(transfer.bytes));
    }
    EXPECT_EQ(documentedBytes("read", "write"), transfers);
    EXPECT_EQ(bus->breaches(), std::vector<std::string>());
    ASSERT_TRUE(host.core().take(message));
    EXPECT_EQ(message, volumeReply());
}

} // namespace
