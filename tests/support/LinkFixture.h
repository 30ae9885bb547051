#pragma once

#include <gtest/gtest.h>

#include <initializer_list>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/hostlink/HostLinkPhysicalLayer.h"
#include "platform/hostlink/HostLinkPrinter.h"
#include "platform/hostlink/HostLinkTransportLayer.h"
#include "platform/hostlink/HostLinkUInt16Message.h"
#include "platform/hostlink/HostLinkValueMessage.h"
#include "platform/sdk/CMNode.h"
#include "platform/sdk/MetaTypes.h"
#include "platform/sdk/Paths.h"
#include "support/HostEnd.h"
#include "support/LogCapture.h"
#include "support/MemoryLayer.h"
#include "support/WaitFor.h"

/// The real node tree, and a host at the far end of the link that a worker made here will open.
/// Expectations compare messages as the printer shows them: "MSG_GetStateResponse STA_Mute=u8:1".
class LinkFixture : public ::testing::Test
{
protected:
    LinkFixture()
    {
        registerSdkMetaTypes();
        m_moduleLayer = MemoryLine::makeEnd(m_line, 0);
        HostLinkPhysicalLayer::registerType("i2c",
                                            [this](const HostLinkPhysicalLayer::Properties& properties) {
                                                m_linkProperties = properties;
                                                return std::move(m_moduleLayer);
                                            });
        restartHost();
    }

    void stopHost() { m_host.reset(); }

    /// A host that knows nothing of an earlier one.
    void restartHost()
    {
        stopHost();
        m_host = std::make_unique<HostEnd>(MemoryLine::makeEnd(m_line, 1));
    }

    /// A node of the module with a first value.
    CMValueNode* createNode(const CMPath& path, const VornValue& value)
    {
        CMValueNode* node = CMValueNode::create(&m_nodes, path);
        node->setValue(value);
        return node;
    }

    static ByteArray numbers(MessageId id, std::initializer_list<int> list)
    {
        HostLinkUInt16Message message(id);
        for (const int number : list) {
            message.addValue(static_cast<std::uint16_t>(number));
        }
        return message.serialize();
    }

    /// The next message of the module in readable form.
    std::string receive() { return HostLinkPrinter::printMessage(m_host->receive()); }

    /// Sends a message and gives the module's next one.
    std::string ask(const ByteArray& message)
    {
        EXPECT_NE(m_host->send(message), 0);
        return receive();
    }
    std::string ask(const HostLinkMessageSerializable& message) { return ask(message.serialize()); }

    /// The messages with which a new worker announces itself, in readable form; the
    /// states of the query in order of their ids.
    std::vector<std::string> receiveAnnouncement()
    {
        std::vector<std::string> messages{receive(), receive(), receive()};
        const ByteArray bytes = m_host->receive();
        const HostLinkUInt16Message query(bytes);
        std::set<int> asked;
        for (int i = 0; i < query.size(); ++i) {
            asked.insert(query.get(i));
        }
        HostLinkUInt16Message ordered(HostLinkMessage::messageId(bytes));
        for (const int state : asked) {
            ordered.addValue(static_cast<std::uint16_t>(state));
        }
        messages.push_back(HostLinkPrinter::printMessage(ordered.serialize()));
        return messages;
    }

    /// True when the module has sent nothing that receive() has not shown: the answer to an empty request
    /// is the next message.
    bool nothingSent() { return ask(numbers(MSG_GetState, {})) == "MSG_GetStateResponse"; }

    CMNodes m_nodes;
    std::optional<HostLinkPhysicalLayer::Properties> m_linkProperties;
    const std::shared_ptr<MemoryLine> m_line = std::make_shared<MemoryLine>();
    std::unique_ptr<HostLinkPhysicalLayer> m_moduleLayer;
    std::unique_ptr<HostEnd> m_host;
    LogCapture m_log;
};
