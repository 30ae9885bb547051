#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <thread>

#include "support/ModuleFixture.h"
#include "support/ScriptedModule.h"

using namespace std::chrono_literals;

namespace
{
using Messages = std::vector<ByteArray>;

const ByteArray kGetTwice{0x00, 0x02, 0x00, 0x07, 0x00, 0x09, 0x00, 0x07};
const ByteArray kSetTwo{0x00, 0x01, 0x00, 0x07, 0xCC, 0x01, 0x00, 0x09, 0xCC, 0x05};

/// The command against a module that answers as the test says, right or wrong.
class ScriptedModuleTest : public RuntimeDirectory
{
protected:
    ScriptedModuleTest() : m_module(directory() + "/link.socket")
    {
        m_module.onMessage = [this](const ByteArray& message) {
            for (const ByteArray& answer : message == m_request ? m_answers : Messages()) {
                m_module.send(answer, m_module.now());
            }
            if (message == ByteArray{0x00, 0x02} && !m_silent) {
                m_module.answer(message);
            }
            m_silent = m_silent || message == m_silencer;
        };
        m_module.start(HostLinkClock::now());
        m_thread = std::thread([this] { work(); });
    }

    ~ScriptedModuleTest() override
    {
        m_stop = true;
        m_thread.join();
    }

    /// Runs the command; `request` is answered with `answers`.
    ProgramResult host(const ByteArray& request, const Messages& answers, Program::Arguments arguments)
    {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_request = request;
            m_answers = answers;
        }
        const Program::Arguments common{"host", "--link", "unix:" + directory() + "/link.socket"};
        arguments.insert(arguments.begin(), common.begin(), common.end());
        return Program::run(arguments);
    }

    /// From this message on the module answers no empty request.
    void fallSilentAt(const ByteArray& message)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_silencer = message;
    }

private:
    void work()
    {
        while (!m_stop) {
            {
                const std::lock_guard<std::mutex> lock(m_mutex);
                m_module.step(HostLinkClock::now());
            }
            std::vector<pollfd> descriptors;
            m_module.port().waitOn(descriptors);
            const auto left =
                std::min<HostLinkDuration>(m_module.port().deadline() - HostLinkClock::now(), 5ms);
            const auto milliseconds = std::chrono::ceil<std::chrono::milliseconds>(left).count();
            ::poll(descriptors.data(), descriptors.size(), std::max(0, int(milliseconds)));
        }
    }

    ScriptedModule m_module;
    std::mutex m_mutex;
    ByteArray m_request; ///< under m_mutex, like m_answers
    Messages m_answers;
    ByteArray m_silencer; ///< under m_mutex, like m_silent
    bool m_silent = false;
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};
} // namespace

TEST_F(ScriptedModuleTest, StatesWithoutAValueFollowTheAnswersAsNone)
{
    const ProgramResult result =
        host(kGetTwice, {{0x80, 0x02, 0x00, 0x09, 0xCC, 0x1E}}, {"get", "7", "9", "7"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "STA_Volume\tu8\t30\nSTA_Mute\tnone\t\nSTA_Mute\tnone\t\n");
}

TEST_F(ScriptedModuleTest, StateAskedTwiceAndAnsweredOnceIsNoneOnce)
{
    const ProgramResult result = host(kGetTwice, {{0x80, 0x02, 0x00, 0x07, 0xCC, 0x01, 0x00, 0x42, 0xC0}},
                                      {"get", "7", "9", "7", "--json"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "{\"name\":\"STA_Mute\",\"state\":7,\"type\":\"u8\",\"value\":1}\n"
                          "{\"name\":\"0x0042\",\"state\":66,\"type\":\"nil\",\"value\":null}\n"
                          "{\"name\":\"STA_Volume\",\"state\":9,\"type\":\"none\",\"value\":null}\n"
                          "{\"name\":\"STA_Mute\",\"state\":7,\"type\":\"none\",\"value\":null}\n");
}

TEST_F(ScriptedModuleTest, EmptyReplyIsAReply)
{
    const ProgramResult result = host({0x00, 0x02, 0x00, 0x07}, {{0x80, 0x02}}, {"get", "7"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "STA_Mute\tnone\t\n");
}

TEST_F(ScriptedModuleTest, SetIsDoneWhenEveryAnswerIsOne)
{
    const ProgramResult result =
        host(kSetTwo, {{0x80, 0x01, 0x00, 0x07, 0xCC, 0x01, 0x00, 0x09, 0xCC, 0x01}}, {"set", "7=1", "9=5"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "STA_Mute\tu8\t1\nSTA_Volume\tu8\t1\n");
}

TEST_F(ScriptedModuleTest, SetWithAnyOtherAnswerIsRefused)
{
    for (const ByteArray& second : Messages{{0xCC, 0x00},
                                            {0xCC, 0x02},
                                            {0xC0},
                                            {0xCD, 0x00, 0x01},
                                            {0xD0, 0x01},
                                            {0xDA, 0x00, 0x01, 0x31}}) {
        ByteArray reply{0x80, 0x01, 0x00, 0x07, 0xCC, 0x01, 0x00, 0x09};
        reply.insert(reply.end(), second.begin(), second.end());
        EXPECT_EQ(host(kSetTwo, {reply}, {"set", "7=1", "9=5"}).status, 1) << int(second[0]);
    }
}

TEST_F(ScriptedModuleTest, SetWithAMissingAnswerIsRefused)
{
    const ProgramResult result = host(kSetTwo, {{0x80, 0x01, 0x00, 0x07, 0xCC, 0x01}}, {"set", "7=1", "9=5"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "STA_Mute\tu8\t1\nSTA_Volume\tnone\t\n");
    EXPECT_EQ(host(kSetTwo, {{0x80, 0x01}}, {"set", "7=1", "9=5"}).status, 1);
}

TEST_F(ScriptedModuleTest, RequestThatTheModuleDoesNotTakeIsRefused)
{
    const ProgramResult result = host(kSetTwo, {{0x80, 0x00, 0x00, 0x01, 0xC0}}, {"set", "7=1", "9=5"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err, "");
}

TEST_F(ScriptedModuleTest, MissingReplyEndsAtTheTimeOut)
{
    const ProgramResult result = host(kSetTwo, {}, {"--timeout", "200", "set", "7=1", "9=5"});
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.out, "");
    EXPECT_NE(result.err.find("no reply within 200 ms"), std::string::npos) << result.err;
}

TEST_F(ScriptedModuleTest, OnlyWhatComesAfterTheOpeningIsPrinted)
{
    const ProgramResult result = host({0x00, 0x02}, {{0x00, 0x04, 0x00, 0x20, 0xCC, 0x01}, {0x80, 0x42}},
                                      {"--timeout", "100", "send", "8001"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "");
}

TEST_F(ScriptedModuleTest, TextIsEscapedAndBytesAreHexadecimal)
{
    const ProgramResult result = host({0x00, 0x02, 0x00, 0x07},
                                      {{0x80, 0x02, 0x00, 0x07, 0xDA, 0x00, 0x03, '\t', '\n', '\\', 0x00,
                                        0x07, 0xC5, 0x00, 0x02, 0xAB, 0x01}},
                                      {"get", "7"});
    EXPECT_EQ(result.out, "STA_Mute\tstr\t\\t\\n\\\\\nSTA_Mute\tbin\tab01\n");
}

TEST_F(ScriptedModuleTest, PushEndsWhenTheModuleHasHandledIt)
{
    const ByteArray push{0x00, 0x04, 0xF0, 0x03, 0xCC, 0x02};
    EXPECT_EQ(host({}, {}, {"push", "HostMicMute=2"}).status, 0);
    fallSilentAt(push);
    EXPECT_EQ(host({}, {}, {"--timeout", "200", "push", "HostMicMute=2"}).status, 3);
}

TEST_F(ScriptedModuleTest, WatchNeedsTheAnswerToItsSubscription)
{
    fallSilentAt({0x00, 0x03, 0x00, 0x07});
    const ProgramResult result = host({}, {}, {"--timeout", "200", "watch", "7"});
    EXPECT_EQ(result.status, 3);
    EXPECT_NE(result.err.find("does not answer the subscription"), std::string::npos) << result.err;
}
