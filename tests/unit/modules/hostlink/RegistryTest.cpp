#include <QMetaMethod>
#include <QPointer>

#include "modules/hostlink/proxy/DiracProxy.h"
#include "modules/hostlink/proxy/ValueItemProxy.h"
#include "support/WorkerFixture.h"
#include "vocabulary/Proxies.h"

namespace
{

using Texts = std::vector<std::string>;

constexpr auto kFirst = State(0x7001);
constexpr auto kSecond = State(0x7002);
constexpr auto kUnknown = State(0x7003);

/// Answers a fixed byte for its states, or what ValueProxy answers by default.
class FixedProxy : public ValueProxy
{
public:
    FixedProxy(QList<State> states, std::optional<std::uint8_t> byte, QObject* parent)
        : ValueProxy(parent), m_states(std::move(states)), m_byte(byte)
    {
    }

    void getValue(State state, HostLinkValueMessage* reply) override
    {
        if (m_byte) {
            reply->addValueUint8(state, *m_byte);
        } else {
            ValueProxy::getValue(state, reply);
        }
    }
    QList<State> states() const override
    {
        ++m_statesAsked;
        return m_states;
    }

    mutable int m_statesAsked = 0;

private:
    QList<State> m_states;
    std::optional<std::uint8_t> m_byte;
};

/// Takes what it is asked and told, and answers nothing.
class SilentProxy : public ValueProxy
{
public:
    SilentProxy(QList<State> states, QObject* parent) : ValueProxy(parent), m_states(std::move(states)) {}

    void getValue(State state, HostLinkValueMessage*) override { m_asked.push_back(state); }
    void setValue(State state, const HostLinkValueMessage& request, int index, HostLinkValueMessage*) override
    {
        m_told.emplace_back(state, request.getUint8(index));
    }
    QList<State> states() const override { return m_states; }

    std::vector<int> m_asked;
    std::vector<std::pair<int, int>> m_told;

private:
    const QList<State> m_states;
};

class RegistryTest : public WorkerFixture
{
protected:
    FixedProxy* add(const QList<State>& states, std::optional<std::uint8_t> byte)
    {
        auto* proxy = new FixedProxy(states, byte, m_worker.get());
        m_worker->addProxy(proxy);
        return proxy;
    }

    static HostLinkValueMessage setBytes(std::initializer_list<State> states)
    {
        HostLinkValueMessage message(MSG_SetState);
        for (const State state : states) {
            message.addValueUint8(state, 1);
        }
        return message;
    }
};

TEST_F(RegistryTest, TheFirstProxyOfAStateKeepsIt)
{
    add({kFirst}, 1);
    m_log.clear();
    add({kFirst, kSecond}, 2);
    EXPECT_EQ(m_log.errors(), Texts{"State: 28673 is already handled"});
    EXPECT_EQ(ask(numbers(MSG_GetState, {kFirst, kSecond})), "MSG_GetStateResponse 0x7001=u8:1 0x7002=u8:2");
}

TEST_F(RegistryTest, AProxyThatListsAStateTwiceOwnsItOnce)
{
    m_log.clear();
    add({kFirst, kFirst}, 1);
    EXPECT_EQ(m_log.errors(), Texts{"State: 28673 is already handled"});
    EXPECT_EQ(ask(numbers(MSG_GetState, {kFirst})), "MSG_GetStateResponse 0x7001=u8:1");
}

using RegistryDeathTest = RegistryTest;

TEST_F(RegistryDeathTest, AProxyThatCannotBeHeardIsFatal)
{
    EXPECT_DEATH(m_worker->addProxy(nullptr), "connection");
}

TEST_F(RegistryTest, AProxyIsAskedForItsStatesOnce)
{
    EXPECT_EQ(add({kFirst, kSecond}, 1)->m_statesAsked, 1);
}

TEST_F(RegistryTest, AProxyWithoutOwnWaysAnswersNilAndRefuses)
{
    add({kFirst}, std::nullopt);
    EXPECT_EQ(ask(numbers(MSG_GetState, {kFirst})), "MSG_GetStateResponse 0x7001=nil");
    EXPECT_EQ(ask(setBytes({kFirst})), "MSG_SetStateResponse 0x7001=u8:0");
}

TEST_F(RegistryTest, WhatAProxyDoesNotAnswerIsMissingInTheAnswer)
{
    add({kFirst}, 5);
    auto* silent = new SilentProxy({kSecond}, m_worker.get());
    m_worker->addProxy(silent);
    EXPECT_EQ(ask(numbers(MSG_GetState, {kSecond})), "MSG_GetStateResponse");
    EXPECT_EQ(ask(numbers(MSG_GetState, {kFirst, kSecond, kFirst})),
              "MSG_GetStateResponse 0x7001=u8:5 0x7001=u8:5");
    EXPECT_EQ(ask(setBytes({kSecond})), "MSG_SetStateResponse");
    EXPECT_EQ(ask(setBytes({kFirst, kSecond, kUnknown})), "MSG_SetStateResponse 0x7001=u8:0 0x7003=nil");
    EXPECT_EQ(silent->m_asked, (std::vector<int>{kSecond, kSecond}));
    EXPECT_EQ(silent->m_told, (std::vector<std::pair<int, int>>(2, {kSecond, 1})));
}

TEST_F(RegistryTest, AnEventWithoutAnyValueIsNotSent)
{
    FixedProxy* proxy = add({kFirst}, 5);
    auto* silent = new SilentProxy({kSecond}, m_worker.get());
    m_worker->addProxy(silent);
    EXPECT_EQ(ask(numbers(MSG_Subscribe, {kSecond})), "MSG_SubscribeResponse 0x7002");
    EXPECT_TRUE(nothingSent());
    emit silent->valueChanged({kSecond});
    EXPECT_TRUE(nothingSent());
    EXPECT_EQ(ask(numbers(MSG_Subscribe, {kFirst})), "MSG_SubscribeResponse 0x7001");
    EXPECT_EQ(receive(), "MSG_StateChanged 0x7001=u8:5");
    emit proxy->valueChanged({kSecond, kFirst});
    EXPECT_EQ(receive(), "MSG_StateChanged 0x7001=u8:5");
    EXPECT_TRUE(nothingSent());
    EXPECT_EQ(silent->m_asked, (std::vector<int>(3, kSecond)));
}

TEST_F(RegistryTest, AnUnknownStateBetweenTwoServedOnesIsNil)
{
    add({kFirst, kSecond}, 5);
    EXPECT_EQ(ask(numbers(MSG_GetState, {kFirst, kUnknown, kSecond})),
              "MSG_GetStateResponse 0x7001=u8:5 0x7003=nil 0x7002=u8:5");
    EXPECT_EQ(ask(setBytes({kFirst, kUnknown, kSecond})),
              "MSG_SetStateResponse 0x7001=u8:0 0x7003=nil 0x7002=u8:0");
}

TEST_F(RegistryTest, SeveralChangedStatesAreOneEvent)
{
    FixedProxy* proxy = add({kFirst, kSecond, kUnknown}, 5);
    ask(numbers(MSG_Subscribe, {kFirst, kSecond}));
    receive();
    m_log.clear();
    emit proxy->valueChanged({kSecond, kUnknown, kFirst});
    EXPECT_EQ(receive(), "MSG_StateChanged 0x7002=u8:5 0x7001=u8:5");
    EXPECT_EQ(m_log.traces().front(), "Enter void CMHostLinkWorker::on_proxy_changed(const QList<State>&): "
                                      "0x7002, 0x7003, 0x7001");
    EXPECT_TRUE(nothingSent());
}

TEST_F(RegistryTest, AProxyWhoseStatesWereAllTakenIsStillHeard)
{
    add({kFirst}, 1);
    FixedProxy* silent = add({kFirst}, 2);
    ask(numbers(MSG_Subscribe, {kFirst}));
    receive();
    emit silent->valueChanged({kFirst});
    EXPECT_EQ(receive(), "MSG_StateChanged 0x7001=u8:1");
}

TEST_F(RegistryTest, ValueChangedIsTheOnlyMetaMethodOfAProxy)
{
    const QMetaObject& meta = ValueProxy::staticMetaObject;
    ASSERT_EQ(meta.methodCount() - meta.methodOffset(), 1);
    EXPECT_EQ(meta.method(meta.methodOffset()).methodSignature(), "valueChanged(QList<State>)");
    EXPECT_EQ(meta.method(meta.methodOffset()).methodType(), QMetaMethod::Signal);
}

TEST_F(RegistryTest, ProxiesGoWithTheWorker)
{
    const QPointer<ValueProxy> proxy = add({kFirst}, 1);
    HostLinkTransportLayer::stopAll();
    m_worker.reset();
    EXPECT_TRUE(proxy.isNull());
}

TEST_F(RegistryTest, EachStateOfTheTableReachesAProxyOfItsOwn)
{
    QSet<ValueProxy*> proxies;
    for (const ProxyRow& row : kProxies) {
        ValueProxy* proxy = m_worker->m_proxies.value(row.states.front());
        ASSERT_NE(proxy, nullptr);
        EXPECT_EQ(proxy->states(), QList<State>(row.states.begin(), row.states.end()));
        for (const State state : row.states) {
            EXPECT_EQ(m_worker->m_proxies.value(state), proxy);
        }
        EXPECT_EQ(proxy->parent(), m_worker.get());
        proxies.insert(proxy);
    }
    EXPECT_EQ(proxies.size(), 77);
}

TEST_F(RegistryTest, OneNodeIsServedAsAWordAndAsAByte)
{
    createNode(VornKestalPrimeHostUpgradeStatusPath(), VornValue().setI32(300));
    EXPECT_EQ(ask(numbers(MSG_GetState, {STA_HostUpgradeStatusU32, STA_HostUpgradeStatus})),
              "MSG_GetStateResponse STA_HostUpgradeStatusU32=u32:300 STA_HostUpgradeStatus=u8:44");
}

TEST_F(RegistryTest, AChangeOfASharedNodeIsAnEventOfEachOfItsStates)
{
    CMValueNode* name = createNode(VornDeviceNamePath(), VornValue().setString("a"));
    ask(numbers(MSG_Subscribe, {STA_DeviceName, STA_BtDeviceName}));
    receive();
    name->setValue(VornValue().setString("b"));
    EXPECT_EQ(receive(), "MSG_StateChanged STA_DeviceName=str:\"b\"");
    EXPECT_EQ(receive(), "MSG_StateChanged STA_BtDeviceName=str:\"b\"");
    EXPECT_TRUE(nothingSent());
}

TEST_F(RegistryTest, ThePlayTimeIsReadBelowThePlayerInstance)
{
    createNode(CMPath("/player/instance/playTime"), VornValue().setI64(1234567890123));
    EXPECT_EQ(ask(numbers(MSG_GetState, {STA_PlayTime})),
              "MSG_GetStateResponse STA_PlayTime=i64:1234567890123");
}

TEST_F(RegistryTest, ADiracProxyTakesTheFiltersFromLaterRowsAndLeavesAnswersOut)
{
    m_worker->m_proxies.remove(STA_DiracFilterSettings);
    m_worker->m_proxies.remove(STA_DiracActiveFilter);
    m_worker->addProxy(new DiracProxy(m_worker.get()));
    m_log.clear();
    for (const ProxyRow& row : kProxies) {
        if (row.states.front() == STA_DiracFilterSettings || row.states.front() == STA_DiracActiveFilter) {
            m_worker->addProxy(
                new ValueItemProxy(row.states.front(), CMPath(*row.node), *row.convert, m_worker.get()));
        }
    }
    EXPECT_EQ(m_log.errors(), (Texts{"State: 62215 is already handled", "State: 62216 is already handled"}));
    EXPECT_EQ(ask(numbers(MSG_GetState, {STA_DiracFilterSettings, STA_DiracActiveFilter})),
              "MSG_GetStateResponse STA_DiracFilterSettings=nil STA_DiracActiveFilter=nil");
    HostLinkValueMessage request(MSG_SetState);
    request.addValueInt32(STA_DiracActiveFilter, 1);
    request.addValueUint8(kUnknown, 1);
    EXPECT_EQ(ask(request), "MSG_SetStateResponse 0x7003=nil") << "one value short";
}

TEST_F(RegistryTest, TheHostsInputIsServedByNobody)
{
    EXPECT_EQ(ask(numbers(MSG_GetState, {STA_TarkoAudioInput, STA_TarkoSetSampleRate})),
              "MSG_GetStateResponse STA_TarkoAudioInput=nil STA_TarkoSetSampleRate=nil");
    EXPECT_EQ(ask(setBytes({STA_TarkoAudioInput, STA_TarkoSetSampleRate})),
              "MSG_SetStateResponse STA_TarkoAudioInput=nil STA_TarkoSetSampleRate=nil");
}

/// Row by row what owns which states, in the order of registration.
TEST_F(RegistryTest, ThePlayerStatesHaveTheirProxies)
{
    const std::pair<const char*, std::vector<int>> owners[] = {
        {"PowerItemProxy", {3, 54}},
        {"PlayControlProxy", {4}},
        {"PlaybackItemProxy", {11, 20, 12, 13, 15, 14, 16, 777, 21, 38}},
        {"RoonSignalPathProxy", {55}},
        {"PostprocessorItemProxy", {25, 26, 27, 49, 50, 51, 52, 53}},
    };
    for (const auto& [name, states] : owners) {
        for (const int state : states) {
            EXPECT_STREQ(m_worker->m_proxies.value(State(state))->metaObject()->className(), name) << state;
        }
    }
    EXPECT_EQ(m_worker->m_proxies.size(), 97);
}

TEST_F(RegistryTest, AnEmptyListOfChangesIsNoEvent)
{
    ask(numbers(MSG_Subscribe, {STA_PlayState, STA_TrackTitle}));
    receive();
    CMValueNode* data = createNode(VornPlayLogicDataPath(), VornValue(VornHash{{"state", 0}}));
    data->setValue(VornHash{{"state", 0}, {"more", 1}});
    EXPECT_TRUE(nothingSent());
    data->setValue(VornHash{{"state", 1}});
    EXPECT_EQ(receive(), "MSG_StateChanged STA_PlayState=u8:1");
}

TEST_F(RegistryTest, StatesOfProxiesThatAreLeftOutAreNil)
{
    EXPECT_EQ(ask(numbers(MSG_GetState, {STA_SystemUp, 33, 37, 46, 47})),
              "MSG_GetStateResponse STA_SystemUp=nil STA_CastAssistantState=nil STA_AvsState=nil "
              "STA_CastChannelSelection=nil STA_CastMultichannelStatus=nil");
}

} // namespace
