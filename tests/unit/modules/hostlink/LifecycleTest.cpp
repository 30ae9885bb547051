#include <QElapsedTimer>
#include <functional>

#include "platform/sdk/VornDiracSlotsSettings.h"
#include "support/WorkerFixture.h"

namespace
{

using namespace std::chrono_literals;
using Texts = std::vector<std::string>;
using Targets = VornPowerManagerTargets;

VornPowerManagerTarget power(int target, int reason = 0)
{
    VornPowerManagerTarget value;
    value.setTarget(Targets::Enum(target)).setReason(VornPowerManagerReasons::Enum(reason));
    return value;
}

/// Tells when it is shut down.
class ShutdownHandler : public HostLinkMessageHandler
{
public:
    explicit ShutdownHandler(std::function<void()> told) : m_told(std::move(told)) {}

    bool handleMessage(MessageId, const ByteArray&) override { return false; }
    void shutdown() override { m_told(); }

private:
    std::function<void()> m_told;
};

/// A power manager at target 1, and handlers of the worker that count their shutdowns.
class LifecycleTest : public WorkerFixture
{
protected:
    LifecycleTest()
    {
        setPower(power(1));
        m_worker->m_handlers.prepend(&m_handler);
        m_log.clear();
    }

    void setPower(const VornPowerManagerTarget& target)
    {
        m_power->setValue(VornValue().setPowerTarget(target));
    }

    /// Every shutdown that was armed up to now has run on return: timers of one length fire in order.
    static void letArmedShutdownsRun()
    {
        bool fired = false;
        QTimer::singleShot(100ms, Qt::PreciseTimer, [&] { fired = true; });
        ASSERT_TRUE(waitFor([&] { return fired; }));
    }

    CMValueNode* m_power = CMValueNode::create(&m_nodes, VornPowerManagerTargetPath());
    int m_shutdowns = 0;
    ShutdownHandler m_handler{[this] { ++m_shutdowns; }};
};

TEST_F(LifecycleTest, TheModuleAnnouncesItselfInOrder)
{
    const Texts expected{
        "MSG_StateChanged STA_SystemUp=u8:1",
        "MSG_Subscribe STA_HostMicMute",
        "MSG_SetState STA_ModulePower=u8:5",
        "MSG_GetState STA_HostFirmwareVersion STA_HostMicMute STA_HostSystemInfo",
    };
    EXPECT_EQ(m_announcement, expected);
    EXPECT_TRUE(nothingSent());
}

TEST_F(LifecycleTest, TheHostsAnswersToTheAnnouncementAreTaken)
{
    HostLinkValueMessage power(MSG_SetStateResponse);
    power.addValueUint8(STA_ModulePower, 1);
    HostLinkValueMessage states(MSG_GetStateResponse);
    states.addValueString(STA_HostFirmwareVersion, "7");
    m_host->send(numbers(MSG_SubscribeResponse, {STA_HostMicMute}));
    m_host->send(power);
    m_host->send(states);
    EXPECT_TRUE(nothingSent());
    EXPECT_EQ(m_log.count(log4cplus::TRACE_LOG_LEVEL, "Response message arrived"), 1U);
    EXPECT_EQ(CMRoot()->getValue(VornHostLinkHostFirmwareVersion()).toHash(), VornValue().setString("7"));
    EXPECT_TRUE(m_log.errors().empty());
}

TEST_F(LifecycleTest, TargetsThatKeepTheModuleUpDoNothing)
{
    for (const int target : {0, 2, 5, 6, 7, -3, 1}) {
        setPower(power(target));
    }
    letArmedShutdownsRun();
    EXPECT_EQ(m_shutdowns, 0);
    EXPECT_TRUE(nothingSent());
}

TEST_F(LifecycleTest, BothTargetsThatTakeTheModuleDownShutTheLinkDown)
{
    setPower(power(3));
    EXPECT_TRUE(waitFor([&] { return m_shutdowns == 1; }));
    setPower(power(1));
    setPower(power(4));
    EXPECT_TRUE(waitFor([&] { return m_shutdowns == 2; }));
}

TEST_F(LifecycleTest, AnEqualTargetShutsDownNothing)
{
    VornPowerManagerTarget later = power(3, 1);
    later.setNextTarget(Targets::Shutdown);
    setPower(power(3));
    setPower(power(3, 1));
    setPower(later);
    letArmedShutdownsRun();
    EXPECT_EQ(m_shutdowns, 1) << "the change to the target alone";
}

TEST_F(LifecycleTest, ANextTargetAloneShutsDownNothing)
{
    VornPowerManagerTarget next = power(1);
    next.setNextTarget(Targets::Restart);
    setPower(next);
    letArmedShutdownsRun();
    EXPECT_EQ(m_shutdowns, 0);
}

TEST_F(LifecycleTest, APowerManagerThatGoesAwayShutsDownNothing)
{
    delete m_power;
    letArmedShutdownsRun();
    EXPECT_EQ(m_shutdowns, 0);
}

TEST_F(LifecycleTest, TheShutdownComesATenthOfASecondLater)
{
    QElapsedTimer sinceChange;
    sinceChange.start();
    setPower(power(4));
    EXPECT_TRUE(waitFor([&] { return m_shutdowns == 1; }));
    EXPECT_GE(sinceChange.elapsed(), 99);
}

TEST_F(LifecycleTest, TwoQuickChangesAreTwoShutdowns)
{
    setPower(power(3));
    setPower(power(4));
    EXPECT_TRUE(waitFor([&] { return m_shutdowns == 2; }));
    EXPECT_EQ(m_log.debugs(), Texts(2, "Unsubscribing from 61443"));
    EXPECT_EQ(receive(), "MSG_Unsubscribe STA_HostMicMute");
}

TEST_F(LifecycleTest, AShutdownUnsubscribesThenTellsTheHandlersThenStopsTheLink)
{
    std::vector<int> order;
    ShutdownHandler first([&] {
        order.push_back(1);
        EXPECT_NE(m_worker->sendMessage(HostLinkValueMessage(MSG_ErrorResponse)), 0) << "the link still runs";
    });
    ShutdownHandler second([&] { order.push_back(2); });
    m_worker->m_handlers = {&first, &second, m_worker.get()};

    m_worker->on_shutdown();

    EXPECT_EQ(order, (std::vector<int>{1, 2}));
    EXPECT_EQ(receive(), "MSG_Unsubscribe STA_HostMicMute");
    EXPECT_EQ(receive(), "MSG_ErrorResponse");
    EXPECT_EQ(m_worker->sendMessage(HostLinkValueMessage(MSG_StateChanged)), 0) << "the link is stopped";
}

TEST_F(LifecycleTest, AShutdownGoesOnThoughNothingCanBeSent)
{
    m_worker->m_transport->stop();
    m_worker->on_shutdown();
    EXPECT_EQ(m_shutdowns, 1);
}

TEST_F(LifecycleTest, AShutdownWithoutAHostStopsTheLinkAllTheSame)
{
    stopHostAndHearOfIt();
    ASSERT_EQ(m_worker->sendMessage(HostLinkValueMessage(MSG_StateChanged)), 0);
    ASSERT_EQ(HostLinkTransportLayer::live().size(), 1U);
    m_worker->on_shutdown();
    EXPECT_EQ(m_shutdowns, 1);
    EXPECT_TRUE(HostLinkTransportLayer::live().empty());
}

TEST_F(LifecycleTest, AHandlerThatLeavesTheListAtAShutdownSkipsNobody)
{
    std::vector<int> told;
    const auto handler = [&](int number) { return ShutdownHandler([&, number] { told.push_back(number); }); };
    ShutdownHandler first = handler(1);
    ShutdownHandler second = handler(2);
    ShutdownHandler leaver([&] {
        told.push_back(3);
        m_worker->m_handlers.removeAll(&leaver);
    });
    ShutdownHandler next = handler(4);
    m_worker->m_handlers = {&first, &second, &leaver, &next, m_worker.get()};

    m_worker->on_shutdown();

    EXPECT_EQ(told, (std::vector<int>{1, 2, 3, 4}));
}

TEST_F(LifecycleTest, AShutdownKeepsTheSubscriptionsOfTheHost)
{
    ask(numbers(MSG_Subscribe, {STA_Mute}));
    receive();
    m_worker->on_shutdown();
    EXPECT_EQ(m_worker->m_subscribedStates, QSet<State>{STA_Mute});
}

class DiracRestoreTest : public LinkFixture
{
protected:
    ~DiracRestoreTest() override { HostLinkTransportLayer::stopAll(); }

    CMValueNode* m_filter = createNode(VornDiracActiveFilterPath(), VornValue().setI32(9));
    std::unique_ptr<CMHostLinkWorker> m_worker;
};

TEST_F(DiracRestoreTest, TheFilterOfTheActiveSlotIsRestoredAtTheStart)
{
    VornDiracSlotsSettings settings;
    settings.setSlotsList(VornDiracSlotsList().setActiveSlot(2));
    createNode(VornDiracSlotsSettingsPath(), VornValue(settings));
    m_worker = std::make_unique<CMHostLinkWorker>(QVariantHash());
    EXPECT_TRUE(waitFor([&] { return m_filter->value().i32() == 2; }));
}

TEST_F(DiracRestoreTest, WithoutSettingsTheFilterIsZero)
{
    m_worker = std::make_unique<CMHostLinkWorker>(QVariantHash());
    EXPECT_TRUE(waitFor([&] { return m_filter->value().i32() == 0; }));
}

} // namespace
