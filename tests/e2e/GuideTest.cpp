#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <sstream>

#include "host/Host.h"
#include "platform/hostlink/HexText.h"
#include "platform/hostlink/HostLinkUInt16Message.h"
#include "support/ModuleFixture.h"
#include "support/ScriptedModule.h"
#include "support/TcpClient.h"

namespace
{
/// One line of an exchange: who does what.
struct Step {
    std::string who;
    std::string what;
};

/// The exchanges of docs/host-guide.md that begin so, in its order.
std::vector<Step> documentedSteps(const std::string& begin)
{
    std::ifstream document(HOSTLINK_SOURCE_DIR "/docs/host-guide.md");
    std::vector<Step> steps;
    bool exchange = false;
    for (std::string line; std::getline(document, line);) {
        if (line.rfind("```", 0) == 0) {
            exchange = line == begin;
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

/// Pairs of digits; 61*128 are 128 bytes 61.
ByteArray bytesOf(const std::string& text)
{
    ByteArray bytes;
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        const std::size_t star = word.find('*');
        const auto part = parseHex(word.substr(0, star));
        EXPECT_TRUE(part) << word;
        const int times = star == std::string::npos ? 1 : std::stoi(word.substr(star + 1));
        for (int i = 0; part && i < times; ++i) {
            bytes.insert(bytes.end(), part->begin(), part->end());
        }
    }
    return bytes;
}

std::string textOf(const std::string& hex)
{
    const ByteArray bytes = bytesOf(hex);
    return std::string(bytes.begin(), bytes.end());
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
    ~Guide() override { std::remove(m_file.c_str()); }

    void SetUp() override { startModule({"--tunnel-port", std::to_string(m_port)}); }

    void playAll(const std::vector<Step>& steps)
    {
        for (const Step& step : steps) {
            SCOPED_TRACE(step.who + ' ' + step.what);
            play(step);
            if (HasFatalFailure()) {
                return;
            }
        }
    }

    void play(const Step& step)
    {
        if (step.who == "host") {
            ASSERT_TRUE(m_host->send(bytesOf(step.what)));
        } else if (step.who == "module") {
            ASSERT_EQ(m_host->receive(&m_message, m_host->now() + std::chrono::seconds(10)),
                      Host::Event::Message);
            ASSERT_EQ(comparable(m_message), comparable(bytesOf(step.what)));
        } else if (step.who == "file") {
            const std::size_t blank = step.what.find(' ');
            m_file = step.what.substr(0, blank);
            std::ofstream(m_file) << textOf(step.what.substr(blank));
        } else if (step.who == "client") {
            actOfClient(step.what);
        } else {
            ASSERT_EQ(step.who, "node");
            actOnNode(step.what);
        }
    }

    void connect()
    {
        m_host = std::make_unique<Host>(connectedLine());
        ASSERT_EQ(m_host->receive(&m_message, m_host->now() + std::chrono::seconds(10)),
                  Host::Event::NewSession);
    }

    const std::uint16_t m_port = freePort();

    std::unique_ptr<Host> m_host;

private:
    std::unique_ptr<HostLinkPhysicalLayer> connectedLine() const
    {
        return HostLinkPhysicalLayer::create("unix", unixLine(directory() + "/hostlink/link.socket", false));
    }

    /// "connects", "sends" or "gets" BYTES, "closes" or "is closed".
    void actOfClient(const std::string& what)
    {
        const std::string verb = what.substr(0, what.find(' '));
        if (verb == "connects") {
            m_client = std::make_unique<TcpClient>(m_port);
        } else if (verb == "sends") {
            m_client->say(textOf(what.substr(verb.size())));
        } else if (verb == "gets") {
            const std::string expected = textOf(what.substr(verb.size()));
            EXPECT_EQ(m_client->await(expected.size()), expected);
        } else if (verb == "closes") {
            m_client.reset();
        } else {
            EXPECT_EQ(what, "is closed");
            EXPECT_TRUE(m_client->awaitClosed());
        }
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
    std::unique_ptr<TcpClient> m_client;
    std::string m_file; ///< of the module's, removed at the end
};

class LabGuide : public Guide
{
    void SetUp() override { startModule({"--plugin", LAB_WORKER}); }
};
} // namespace

TEST_F(Guide, ExchangesOfTheHostGuideAreTrue)
{
    connect();
    const std::vector<Step> steps = documentedSteps("```exchange");
    ASSERT_GT(steps.size(), 40u);
    playAll(steps);
    ASSERT_FALSE(HasFatalFailure());
    ByteArray none;
    EXPECT_EQ(m_host->receive(&none, m_host->now() + std::chrono::seconds(10)), Host::Event::Ended);
}

TEST_F(LabGuide, ExchangesWithTheLabsWorkerAreTrue)
{
    connect();
    ASSERT_TRUE(m_host->send(bytesOf("0002")));
    for (ByteArray message; message != bytesOf("8002");) {
        ASSERT_EQ(m_host->receive(&message, m_host->now() + std::chrono::seconds(10)), Host::Event::Message);
    }
    const std::vector<Step> steps = documentedSteps("```exchange lab");
    ASSERT_GT(steps.size(), 3u);
    playAll(steps);
}
