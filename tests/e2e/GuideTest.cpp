#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <sstream>

#include "e2e/ModuleFixture.h"
#include "host/Host.h"
#include "platform/hostlink/HexText.h"
#include "platform/hostlink/HostLinkUInt16Message.h"
#include "support/ScriptedModule.h"

namespace
{
/// One line of an exchange: who does what.
struct Step {
    std::string who;
    std::string what;
};

/// The exchanges of docs/host-guide.md, in its order.
std::vector<Step> documentedSteps()
{
    std::ifstream document(HOSTLINK_SOURCE_DIR "/docs/host-guide.md");
    std::vector<Step> steps;
    bool exchange = false;
    for (std::string line; std::getline(document, line);) {
        if (line.rfind("```", 0) == 0) {
            exchange = line == "```exchange";
        } else if (exchange) {
            std::istringstream words(line.substr(0, line.find('#')));
            Step step;
            words >> step.who;
            std::getline(words >> std::ws, step.what);
            step.what.erase(step.what.find_last_not_of(' ') + 1);
            steps.push_back(step);
        }
    }
    return steps;
}

ByteArray bytesOf(std::string hex)
{
    hex.erase(std::remove(hex.begin(), hex.end(), ' '), hex.end());
    const auto bytes = parseHex(hex);
    EXPECT_TRUE(bytes) << hex;
    return bytes.value_or(ByteArray());
}

/// As text to compare; the order in which states are asked is not fixed.
std::string comparable(const ByteArray& message)
{
    if (HostLinkMessage::messageId(message) != MSG_GetState) {
        return hexText(message);
    }
    const HostLinkUInt16Message query(message);
    std::vector<std::uint16_t> states;
    for (int i = 0; i < query.size(); ++i) {
        states.push_back(query.get(i));
    }
    std::sort(states.begin(), states.end());
    HostLinkUInt16Message sorted(MSG_GetState);
    for (const std::uint16_t state : states) {
        sorted.addValue(state);
    }
    return hexText(sorted.serialize());
}

class Guide : public ModuleFixture
{
protected:
    void play(const Step& step)
    {
        if (step.who == "host") {
            ASSERT_TRUE(m_host->send(bytesOf(step.what)));
        } else if (step.who == "module") {
            ASSERT_EQ(m_host->receive(&m_message, m_host->now() + std::chrono::seconds(10)),
                      Host::Event::Message);
            ASSERT_EQ(comparable(m_message), comparable(bytesOf(step.what)));
        } else {
            ASSERT_EQ(step.who, "node");
            actOnNode(step.what);
        }
    }

    void connect() { m_host = std::make_unique<Host>(connectedLine()); }

    std::unique_ptr<Host> m_host;

private:
    std::unique_ptr<HostLinkPhysicalLayer> connectedLine() const
    {
        return HostLinkPhysicalLayer::create("unix", unixLine(directory() + "/hostlink/link.socket", false));
    }

    /// "get NODE VALUE", or "set" or "invoke" NODE VALUE.
    static void actOnNode(const std::string& what)
    {
        std::istringstream words(what);
        std::string method, node, value;
        words >> method >> node >> value;
        if (method == "get") {
            EXPECT_EQ(Program::run({"node", "get", node}).out, value + "\n");
        } else {
            const ProgramResult result = Program::run({"node", method, node, value});
            EXPECT_EQ(result.status, 0) << result.err;
        }
    }

    ByteArray m_message;
};
} // namespace

TEST_F(Guide, ExchangesOfTheHostGuideAreTrue)
{
    connect();
    ByteArray none;
    ASSERT_EQ(m_host->receive(&none, m_host->now() + std::chrono::seconds(10)), Host::Event::NewSession);
    const std::vector<Step> steps = documentedSteps();
    ASSERT_GT(steps.size(), 40u);
    for (const Step& step : steps) {
        SCOPED_TRACE(step.who + ' ' + step.what);
        play(step);
        if (HasFatalFailure()) {
            return;
        }
    }
    EXPECT_EQ(m_host->receive(&none, m_host->now() + std::chrono::seconds(10)), Host::Event::Ended);
}
