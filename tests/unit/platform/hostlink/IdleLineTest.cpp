#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "platform/hostlink/HostLinkPort.h"
#include "support/LineKind.h"

using namespace std::chrono_literals;

namespace
{

/// One end of a link, which is stepped when it would wake up.
class IdleEnd
{
public:
    explicit IdleEnd(std::unique_ptr<HostLinkPhysicalLayer> layer) : m_port(std::move(layer)) {}
    ~IdleEnd() { m_port.close(); }

    void open(HostLinkTime now) { m_port.open(now); }
    bool isInSession() const { return m_port.core().session() == HostLinkCore::Session::Established; }
    HostLinkTime deadline() const { return m_port.deadline(); }
    std::uint64_t framesSent() const { return m_port.core().counters().framesSent; }
    std::uint64_t framesReceived() const { return m_port.core().counters().framesReceived; }
    int wakeUps() const { return m_wakeUps; }
    void forgetWakeUps() { m_wakeUps = 0; }
    bool hasDescriptor() const { return !descriptors().empty(); }

    bool isReady(int milliseconds) const
    {
        std::vector<pollfd> list = descriptors();
        return ::poll(list.data(), list.size(), milliseconds) > 0;
    }

    /// Wakes up, and does what there is to do before it sleeps again.
    void wake(HostLinkTime now)
    {
        ++m_wakeUps;
        do {
            m_port.step(now);
        } while (m_port.deadline() <= now);
    }

private:
    std::vector<pollfd> descriptors() const
    {
        std::vector<pollfd> list;
        m_port.waitOn(list);
        return list;
    }

    HostLinkPort m_port;
    int m_wakeUps = 0;
};

/// Both ends of an idle link, on simulated time that waits for bytes on their way.
class IdleLine : public ::testing::TestWithParam<const char*>
{
protected:
    IdleLine()
    {
        m_module.open(m_now);
        m_host.open(m_now);
    }

    bool establish()
    {
        for (int i = 0; i < 10'000 && !(m_module.isInSession() && m_host.isInSession()); ++i) {
            m_module.wake(m_now);
            m_host.wake(m_now);
            m_now += 1ms;
            m_module.isReady(1);
        }
        return m_module.isInSession() && m_host.isInSession();
    }

    void run(HostLinkDuration span)
    {
        const HostLinkTime end = m_now + span;
        while (m_now < end) {
            while (wakeForBytes(m_module, m_host) || wakeForBytes(m_host, m_module)) {
            }
            m_now = std::max(m_now, std::min({end, m_module.deadline(), m_host.deadline()}));
            for (IdleEnd* each : {&m_module, &m_host}) {
                if (each->deadline() <= m_now) {
                    each->wake(m_now);
                }
            }
        }
    }

    const std::unique_ptr<LineKind> m_line = LineKind::make(GetParam());
    HostLinkTime m_now = HostLinkClock::now();
    IdleEnd m_module{m_line->listening()};
    IdleEnd m_host{m_line->connecting()};

private:
    /// True when the descriptor of `to` woke it for what `from` sent.
    static bool wakeForBytes(IdleEnd& to, IdleEnd& from, HostLinkTime now)
    {
        const bool onTheirWay = to.hasDescriptor() && from.framesSent() > to.framesReceived();
        if (!to.isReady(onTheirWay ? 10'000 : 0)) {
            return false;
        }
        to.wake(now);
        return true;
    }
    bool wakeForBytes(IdleEnd& to, IdleEnd& from) { return wakeForBytes(to, from, m_now); }
};

INSTANTIATE_TEST_SUITE_P(Kinds, IdleLine, ::testing::ValuesIn(kPromptLines),
                         [](const auto& kind) { return std::string(kind.param); });

TEST_P(IdleLine, WakesTwiceASecondOrThirtyTimesWhereItPolls)
{
    constexpr int kSeconds = 60;
    ASSERT_TRUE(establish());
    run(5s);
    m_module.forgetWakeUps();
    m_host.forgetWakeUps();
    run(std::chrono::seconds(kSeconds));
    EXPECT_TRUE(m_module.isInSession() && m_host.isInSession());
    EXPECT_GE(m_module.wakeUps(), kSeconds); // it lives, and its peer too
    EXPECT_LE(m_module.wakeUps(), (m_module.hasDescriptor() ? 2 : 30) * kSeconds);
    EXPECT_LE(m_host.wakeUps(), 2 * kSeconds);
    RecordProperty("module", m_module.wakeUps());
    RecordProperty("host", m_host.wakeUps());
}

} // namespace
