#include "host/HostSession.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>

#include "support/ScriptedModule.h"
#include "unit/host/SimulatedSystem.h"

using namespace std::chrono_literals;

namespace
{
using Cause = HostError::Cause;
using Messages = std::vector<ByteArray>;

const ByteArray kOpening{0x00, 0x02};
const ByteArray kOpeningReply{0x80, 0x02};
const ByteArray kGetMute{0x00, 0x02, 0x00, 0x07};
const ByteArray kMuteIsNil{0x80, 0x02, 0x00, 0x07, 0xC0};
const ByteArray kSetMute{0x00, 0x01, 0x00, 0x07, 0xCC, 0x01};
const ByteArray kMuteWasSet{0x80, 0x01, 0x00, 0x07, 0xCC, 0x01};
const ByteArray kMuteChanged{0x00, 0x04, 0x00, 0x07, 0xCC, 0x01};
const ByteArray kModuleSubscribes{0x00, 0x03, 0xF0, 0x03};
const ByteArray kHostSubscribed{0x80, 0x03, 0xF0, 0x03};

class HostSessionTest : public testing::Test
{
protected:
    HostSessionTest()
    {
        m_system.onWait = [this] { m_module.step(m_system.now()); };
        m_module.start(m_system.now());
    }

    std::unique_ptr<HostLinkPhysicalLayer> line()
    {
        return HostLinkPhysicalLayer::create("unix", unixLine(m_directory.socket(), false));
    }

    HostSession& session()
    {
        if (!m_host) {
            m_host.emplace(line(), m_interrupt, m_system);
            m_session.emplace(*m_host, 2000ms);
        }
        return *m_session;
    }

    /// What the work failed with; nothing when it did not.
    std::optional<Cause> failureOf(const std::function<void()>& work)
    {
        try {
            work();
        } catch (const HostError& error) {
            m_text = error.what();
            return error.cause();
        }
        return std::nullopt;
    }

    long countReceived(const ByteArray& message) const
    {
        return std::count(m_module.received.begin(), m_module.received.end(), message);
    }

    /// Runs `once` in place of the first answer to `request`; later ones are answered as usual.
    void onFirst(const ByteArray& request, std::function<void()> once)
    {
        m_module.onMessage = [this, request, once, done = false](const ByteArray& message) mutable {
            if (message == request && !done) {
                done = true;
                once();
                return;
            }
            m_module.answer(message);
        };
    }

    /// With each message that the host gets, a millisecond passes and the next one comes: for ten seconds, so
    /// that a wait without end does not keep the test.
    void pourMessages()
    {
        session().observe([this, end = now() + 10s](HostSession::Side side, const ByteArray&) {
            if (side == HostSession::Side::Module && now() < end) {
                std::vector<pollfd> none;
                m_module.send(kMuteChanged, now());
                m_system.wait(none, HostLinkTime::max());
            }
        });
        m_module.onMessage = [this](const ByteArray&) { m_module.send(kMuteChanged, m_module.now()); };
    }

    HostLinkTime now() { return m_system.now(); }

    SocketDirectory m_directory;
    SimulatedSystem m_system;
    ScriptedModule m_module{m_directory.socket()};
    int m_interrupt = -1;
    std::optional<Host> m_host;
    std::optional<HostSession> m_session;
    std::string m_text;
    ByteArray m_message;
};
} // namespace

TEST_F(HostSessionTest, OpensWithAnEmptyRequestAndItsReply)
{
    session().open();
    EXPECT_EQ(m_module.received, Messages{kOpening});
}

TEST_F(HostSessionTest, WhatTheModuleSaidBeforeTheOpeningReplyIsDropped)
{
    m_module.onMessage = [this](const ByteArray& message) {
        if (message == kOpening) {
            m_module.send({0x00, 0x04, 0x00, 0x20, 0xCC, 0x01}, m_module.now());
            m_module.send(kMuteIsNil, m_module.now());
        }
        m_module.answer(message);
    };
    session().open();
    EXPECT_EQ(session().receive(&m_message, now() + 100ms), Host::Event::TimedOut);
}

TEST_F(HostSessionTest, RequestsOfTheModuleAreAnsweredDuringTheOpening)
{
    m_module.onMessage = [this](const ByteArray& message) {
        if (message == kOpening) {
            m_module.send(kModuleSubscribes, m_module.now());
        }
        if (message == kHostSubscribed) {
            m_module.send(kOpeningReply, m_module.now());
        }
    };
    session().open();
    EXPECT_EQ(countReceived(kHostSubscribed), 1);
}

TEST_F(HostSessionTest, RequestsOfTheModuleAreAnsweredWhileARequestIsUnderWay)
{
    session().open();
    m_module.onMessage = [this](const ByteArray& message) {
        if (message == kGetMute) {
            m_module.send(kModuleSubscribes, m_module.now());
        }
        if (message == kHostSubscribed) {
            m_module.send(kMuteIsNil, m_module.now());
        }
    };
    EXPECT_EQ(session().request(kGetMute, HostSession::Repeat::Once), kMuteIsNil);
}

TEST_F(HostSessionTest, RequestReturnsItsResponseAmongOtherMessages)
{
    session().open();
    m_module.onMessage = [this](const ByteArray&) {
        m_module.send({0x00, 0x04, 0x00, 0x07, 0xCC, 0x01}, m_module.now());
        m_module.send({0x80, 0x42}, m_module.now());
        m_module.send(kOpeningReply, m_module.now());
        m_module.send(kMuteWasSet, m_module.now());
    };
    EXPECT_EQ(session().request(kSetMute, HostSession::Repeat::Never), kMuteWasSet);
}

TEST_F(HostSessionTest, EmptyResponseIsAResponse)
{
    session().open();
    m_module.onMessage = [this](const ByteArray&) { m_module.send(kOpeningReply, m_module.now()); };
    EXPECT_EQ(session().request(kGetMute, HostSession::Repeat::Once), kOpeningReply);
}

TEST_F(HostSessionTest, RefusedRequestIsToldAtOnce)
{
    session().open();
    m_module.onMessage = [this](const ByteArray&) {
        m_module.send({0x80, 0x00, 0x00, 0x42, 0xC0}, m_module.now()); // of another request
        m_module.send({0x80, 0x00}, m_module.now());
        m_module.send({0x80, 0x00, 0x00, 0x02, 0xC0}, m_module.now());
    };
    const HostLinkTime start = now();
    EXPECT_EQ(failureOf([&] { session().request(kGetMute, HostSession::Repeat::Once); }), Cause::Refused);
    EXPECT_LT(now() - start, 100ms);
}

TEST_F(HostSessionTest, MissingModuleIsToldAtTheTimeOut)
{
    m_module.kill();
    const HostLinkTime start = now();
    EXPECT_EQ(failureOf([&] { session().open(); }), Cause::NoSession);
    EXPECT_EQ(now() - start, 2000ms);
    EXPECT_EQ(m_text, "no module was there within 2000 ms");
}

TEST_F(HostSessionTest, LineWithoutASessionIsToldAtTheTimeOut)
{
    m_system.onWait = [this] { m_module.port(); }; // the socket accepts, nobody speaks
    EXPECT_EQ(failureOf([&] { session().open(); }), Cause::NoSession);
    EXPECT_EQ(m_text, "the module began no session within 2000 ms");
}

TEST_F(HostSessionTest, SilentModuleIsToldAtTheTimeOut)
{
    m_module.onMessage = [](const ByteArray&) {};
    const HostLinkTime start = now();
    EXPECT_EQ(failureOf([&] { session().open(); }), Cause::NoReply);
    EXPECT_EQ(now() - start, 2000ms);
}

TEST_F(HostSessionTest, MissingReplyIsToldAtTheTimeOut)
{
    session().open();
    m_module.onMessage = [](const ByteArray&) {};
    const HostLinkTime start = now();
    EXPECT_EQ(failureOf([&] { session().request(kGetMute, HostSession::Repeat::Once); }), Cause::NoReply);
    EXPECT_EQ(now() - start, 2000ms);
    EXPECT_EQ(m_text, "no reply within 2000 ms");
}

TEST_F(HostSessionTest, MissingReplyIsToldAtTheTimeOutWhileMessagesPourIn)
{
    session().open();
    pourMessages();
    const HostLinkTime start = now();
    EXPECT_EQ(failureOf([&] { session().request(kGetMute, HostSession::Repeat::Once); }), Cause::NoReply);
    EXPECT_LE(now() - start, 2010ms);
}

TEST_F(HostSessionTest, OpeningEndsAtTheTimeOutWhileMessagesPourIn)
{
    pourMessages();
    const HostLinkTime start = now();
    EXPECT_EQ(failureOf([&] { session().open(); }), Cause::NoReply);
    EXPECT_LE(now() - start, 2010ms);
}

TEST_F(HostSessionTest, WhatWasAwaitedInVainIsNotAwaitedAgain)
{
    session().open();
    m_system.onWait = [] {}; // the module stands still
    session().send(kGetMute);
    const HostLinkTime begin = m_system.now();
    EXPECT_FALSE(session().waitAcknowledged());
    EXPECT_FALSE(session().waitAcknowledged());
    EXPECT_EQ(m_system.now(), begin + 2000ms);
    m_system.onWait = [this] { m_module.step(m_system.now()); };
    session().send(kGetMute);
    EXPECT_TRUE(session().waitAcknowledged()) << "what is sent then is";
}

TEST_F(HostSessionTest, OccupiedLinkIsToldAtOnce)
{
    Host first(line(), -1, m_system);
    ASSERT_EQ(first.receive(&m_message, now() + 2s), Host::Event::NewSession);
    const HostLinkTime start = now();
    EXPECT_EQ(failureOf([&] { session().open(); }), Cause::Occupied);
    EXPECT_LT(now() - start, 100ms);
    EXPECT_EQ(m_text, "the link is occupied by another host");
}

TEST_F(HostSessionTest, OpeningIsRepeatedWhenTheModuleRestarts)
{
    onFirst(kOpening, [this] { m_module.start(m_module.now()); });
    session().open();
    EXPECT_EQ(countReceived(kOpening), 2);
}

TEST_F(HostSessionTest, GetIsRepeatedOnceWhenTheModuleRestarts)
{
    session().open();
    onFirst(kGetMute, [this] { m_module.start(m_module.now()); });
    EXPECT_EQ(session().request(kGetMute, HostSession::Repeat::Once), kMuteIsNil);
    EXPECT_EQ(countReceived(kOpening), 2) << "the new session is opened as the first one";
    EXPECT_EQ(countReceived(kGetMute), 2);
}

TEST_F(HostSessionTest, GetIsNotRepeatedTwice)
{
    session().open();
    m_module.onMessage = [this](const ByteArray& message) {
        if (message == kGetMute) {
            m_module.start(m_module.now());
        } else {
            m_module.answer(message);
        }
    };
    EXPECT_EQ(failureOf([&] { session().request(kGetMute, HostSession::Repeat::Once); }), Cause::SessionLost);
    EXPECT_EQ(countReceived(kGetMute), 2);
}

TEST_F(HostSessionTest, GetSurvivesAModuleThatSaysGoodbyeAndRestarts)
{
    session().open();
    onFirst(kGetMute, [this] {
        m_module.goodbye(m_module.now());
        m_module.start(m_module.now());
    });
    EXPECT_EQ(session().request(kGetMute, HostSession::Repeat::Once), kMuteIsNil);
}

TEST_F(HostSessionTest, GetEndsAtTheTimeOutWhenTheModuleIsGone)
{
    session().open();
    onFirst(kGetMute, [this] { m_module.kill(); });
    const HostLinkTime start = now();
    EXPECT_EQ(failureOf([&] { session().request(kGetMute, HostSession::Repeat::Once); }), Cause::NoReply);
    EXPECT_EQ(now() - start, 2000ms);
}

TEST_F(HostSessionTest, SetIsNeverRepeated)
{
    session().open();
    onFirst(kSetMute, [this] { m_module.start(m_module.now()); });
    EXPECT_EQ(failureOf([&] { session().request(kSetMute, HostSession::Repeat::Never); }),
              Cause::SessionLost);
    EXPECT_EQ(countReceived(kSetMute), 1);
}

TEST_F(HostSessionTest, SetEndsAtOnceWhenTheModuleSaysGoodbye)
{
    session().open();
    onFirst(kSetMute, [this] { m_module.goodbye(m_module.now()); });
    const HostLinkTime start = now();
    EXPECT_EQ(failureOf([&] { session().request(kSetMute, HostSession::Repeat::Never); }),
              Cause::SessionLost);
    EXPECT_LT(now() - start, 100ms);
}

TEST_F(HostSessionTest, ReplyThatWasSentBeforeTheModuleRestartedCounts)
{
    session().open();
    onFirst(kSetMute, [this] {
        m_module.send(kMuteWasSet, m_module.now());
        m_module.port().step(m_module.now());
        m_module.start(m_module.now());
    });
    EXPECT_EQ(session().request(kSetMute, HostSession::Repeat::Never), kMuteWasSet);
}

TEST_F(HostSessionTest, ReplyThatWasLostWithItsModuleIsAskedForAgain)
{
    session().open();
    onFirst(kGetMute, [this] {
        m_module.send({0x80, 0x02, 0x00, 0x07, 0xCC, 0x01}, m_module.now()); // never on the wire
        m_module.start(m_module.now());
    });
    EXPECT_EQ(session().request(kGetMute, HostSession::Repeat::Once), kMuteIsNil);
}

TEST_F(HostSessionTest, MessageLongerThanTheLinkCarriesIsRefused)
{
    session().open();
    EXPECT_EQ(failureOf([&] { session().send(ByteArray(10'000'000, 0x01)); }), Cause::TooLong);
    EXPECT_EQ(session().request(kGetMute, HostSession::Repeat::Once), kMuteIsNil) << "the session goes on";
}

TEST_F(HostSessionTest, HundredsOfStatesFitOneRequest)
{
    session().open();
    HostLinkUInt16Message request(MSG_GetState);
    for (int i = 0; i < 1000; ++i) {
        request.addValue(std::uint16_t(i));
    }
    const HostLinkValueMessage reply(session().request(request.serialize(), HostSession::Repeat::Once));
    ASSERT_EQ(reply.size(), 1000);
    EXPECT_EQ(reply.getTag(999), 999);
}

TEST_F(HostSessionTest, WaitsUntilTheModulesEndHasEverything)
{
    session().open();
    session().send(kSetMute);
    EXPECT_TRUE(session().waitAcknowledged());
    EXPECT_EQ(countReceived(kSetMute), 1);
    m_system.onWait = [] {};
    session().send(kSetMute);
    EXPECT_FALSE(session().waitAcknowledged());
}

TEST_F(HostSessionTest, InterruptEndsAnOpeningAndARequest)
{
    int pipe[2];
    ASSERT_EQ(::pipe(pipe), 0);
    m_interrupt = pipe[0];
    session().open();
    m_module.onMessage = [&](const ByteArray&) { EXPECT_EQ(write(pipe[1], "x", 1), 1); };
    const HostLinkTime start = now();
    EXPECT_EQ(failureOf([&] { session().request(kGetMute, HostSession::Repeat::Once); }), Cause::Interrupted);
    EXPECT_EQ(failureOf([&] { session().open(); }), Cause::Interrupted);
    EXPECT_LT(now() - start, 100ms);
    m_host.reset();
    close(pipe[0]);
    close(pipe[1]);
}

TEST_F(HostSessionTest, ObserverSeesBothSidesInTheOrderOfTheConversation)
{
    std::vector<std::pair<HostSession::Side, ByteArray>> seen;
    m_module.onMessage = [this](const ByteArray& message) {
        if (message == kOpening) {
            m_module.send(kModuleSubscribes, m_module.now());
        }
        m_module.answer(message);
    };
    session().observe(
        [&](HostSession::Side side, const ByteArray& message) { seen.emplace_back(side, message); });
    session().open();
    using Side = HostSession::Side;
    const decltype(seen) expected{{Side::Host, kOpening},
                                  {Side::Module, kModuleSubscribes},
                                  {Side::Host, kHostSubscribed},
                                  {Side::Module, kOpeningReply}};
    EXPECT_EQ(seen, expected);
}

TEST_F(HostSessionTest, MessageThatNoSessionTookIsNotObserved)
{
    session().open();
    m_module.goodbye(now());
    ASSERT_EQ(session().receive(&m_message, now() + 100ms), Host::Event::Ended);
    bool observed = false;
    session().observe([&](HostSession::Side, const ByteArray&) { observed = true; });
    EXPECT_FALSE(session().send(kGetMute));
    EXPECT_FALSE(observed);
}
