#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "platform/hostlink/HexText.h"
#include "platform/hostlink/HostLinkCore.h"
#include "platform/hostlink/HostLinkUInt16Message.h"
#include "platform/hostlink/HostLinkValueMessage.h"
#include "vocabulary/States.h"

using namespace std::chrono_literals;

namespace
{

/// The frames that docs/protocol.md shows, "module HEX" or "host HEX" each, in its order.
std::vector<std::string> documentedFrames()
{
    std::ifstream document(HOSTLINK_SOURCE_DIR "/docs/protocol.md");
    std::vector<std::string> frames;
    std::string line;
    while (std::getline(document, line)) {
        std::istringstream words(line);
        std::string who;
        std::string byte;
        words >> who;
        std::string hex;
        while (words >> byte && byte.size() == 2) {
            hex += byte;
        }
        if ((who == "module" || who == "host") && hex.size() >= 8) {
            frames.push_back(who + ' ' + hex);
        }
    }
    return frames;
}

class Conversation
{
public:
    Conversation() : module(settings(0x0102030405060708)), host(settings(0x1112131415161718)) {}

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
        end.handled(MessageClass::State, message.size(), now);
        return message;
    }

    HostLinkCore module;
    HostLinkCore host;
    HostLinkTime now{1h};
    std::vector<std::string> frames;

private:
    static HostLinkCore::Settings settings(std::uint64_t instance)
    {
        HostLinkCore::Settings settings;
        settings.drawInstance = [instance] { return instance; };
        return settings;
    }

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

    HostLinkUInt16Message request(MSG_GetState);
    request.addValue(STA_Volume);
    ASSERT_TRUE(link.host.send(request.serialize(), link.now));
    link.exchange();
    EXPECT_EQ(link.receive(link.module), request.serialize());

    HostLinkValueMessage reply(MSG_GetStateResponse);
    reply.addValueUint8(STA_Volume, 40);
    ASSERT_TRUE(link.module.send(reply.serialize(), link.now));
    link.exchange();
    EXPECT_EQ(link.receive(link.host), reply.serialize());

    link.now += 5ms;
    link.exchange();
    link.host.goodbye(link.now);
    link.exchange();
    link.frames.push_back("module " + hexText(HostLinkCore::refusalFrame()));

    EXPECT_EQ(documentedFrames(), link.frames);
}

} // namespace
