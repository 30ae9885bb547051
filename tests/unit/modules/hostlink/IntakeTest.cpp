#include <QElapsedTimer>
#include <thread>

#include "platform/hostlink/HostLinkCore.h"
#include "support/LinkLogCapture.h"
#include "support/WorkerFixture.h"
#include "vocabulary/Proxies.h"

namespace
{

using Texts = std::vector<std::string>;

/// Takes the messages of one id and keeps them.
class Taker : public HostLinkMessageHandler
{
public:
    explicit Taker(int id) : m_id(static_cast<MessageId>(id)) {}

    bool handleMessage(MessageId id, const ByteArray& bytes) override
    {
        m_seen.push_back(bytes);
        return id == m_id;
    }
    void shutdown() override {}

    std::vector<ByteArray> m_seen;

private:
    MessageId m_id;
};

class IntakeTest : public WorkerFixture
{
protected:
    IntakeTest() { m_log.clear(); }

    static VornHash valueAt(const CMPath& path) { return VornHash(CMRoot()->getValue(path).toHash()); }
    static ByteArray message(int id) { return HostLinkValueMessage(static_cast<MessageId>(id)).serialize(); }
};

TEST_F(IntakeTest, AMessageWithoutIdIsOnlyAnError)
{
    m_worker->on_message_received(QByteArray("\0\0\x01", 3));
    EXPECT_EQ(m_log.errors(), Texts{"Message is invalid, cannot read message Id"});
    EXPECT_EQ(m_log.lines().size(), 1U);
    EXPECT_TRUE(nothingSent());
}

TEST_F(IntakeTest, AMessageTooShortForAnIdIsOnlyAnError)
{
    m_worker->on_message_received(QByteArray());
    m_worker->on_message_received(QByteArray("\x01", 1));
    const Texts expected(2, "Message is invalid, cannot read message Id");
    EXPECT_EQ(m_log.errors(), expected);
    EXPECT_TRUE(nothingSent());
}

TEST_F(IntakeTest, AMessageWithoutIdFromTheLinkLosesNothingBehindIt)
{
    m_host->send(message(0));
    EXPECT_TRUE(nothingSent());
    EXPECT_EQ(m_log.errors(), Texts{"Message is invalid, cannot read message Id"});
}

TEST_F(IntakeTest, LogsEachIdInDecimal)
{
    ask(numbers(MSG_GetState, {}));
    EXPECT_EQ(m_log.debugs().at(0), "Incoming message id: 2");
    m_host->send(message(MSG_SetStateResponse));
    ASSERT_TRUE(nothingSent());
    EXPECT_EQ(m_log.count(log4cplus::DEBUG_LOG_LEVEL, "Incoming message id: 32769"), 1U);
}

TEST_F(IntakeTest, AnUnknownRequestIsAnsweredWithItsIdAsAnError)
{
    EXPECT_EQ(ask(message(0x0042)), "MSG_ErrorResponse 0x0042=nil");
    EXPECT_EQ(m_log.errors(), Texts{"Unhandled message id:66"});
    EXPECT_TRUE(nothingSent());
}

/// A request of 64 KiB for one long text, again and again, would come to 2 GB.
TEST_F(IntakeTest, AnAnswerThatNoLinkCarriesIsNotMadeToItsEnd)
{
    createNode(VornDeviceNamePath(), VornValue().setString(QString(65000, 'a')));
    HostLinkUInt16Message get(MSG_GetState);
    HostLinkUInt16Message subscribe(MSG_Subscribe);
    for (int i = 0; i < 32000; ++i) {
        get.addValue(STA_DeviceName);
        subscribe.addValue(STA_DeviceName);
    }
    const LinkLogCapture log;
    EXPECT_NE(m_host->send(get.serialize()), 0);
    EXPECT_TRUE(nothingSent());
    EXPECT_EQ(ask(subscribe), "MSG_SubscribeResponse STA_DeviceName");
    EXPECT_TRUE(nothingSent());
    // What was made of each: values of 65,005 bytes until it was longer than a MiB.
    const Texts expected{"MSG_GetStateResponse of 1105087 bytes is longer than the link carries, not sent",
                         "MSG_StateChanged of 1105087 bytes is longer than the link carries, not sent"};
    EXPECT_EQ(log.lines(), expected);
}

TEST_F(IntakeTest, AnUnknownResponseIsOnlyTraced)
{
    m_host->send(message(0x8042));
    EXPECT_TRUE(nothingSent());
    EXPECT_EQ(m_log.count(log4cplus::TRACE_LOG_LEVEL, "Response message arrived"), 1U);
    EXPECT_TRUE(m_log.errors().empty());
}

TEST_F(IntakeTest, TheAnswerToASetOfTheModuleIsNotAnswered)
{
    m_host->send(message(MSG_SetStateResponse));
    EXPECT_TRUE(nothingSent());
    EXPECT_EQ(m_log.traces(), Texts{"Response message arrived"});
}

TEST_F(IntakeTest, TheErrorResponseOfAHostIsNotAnswered)
{
    m_host->send(message(MSG_ErrorResponse));
    EXPECT_TRUE(nothingSent());
}

TEST_F(IntakeTest, TheIdsOfTheSideChannelsAreNotTheWorkersOwn)
{
    for (const int id : {0x0006, 0x0007, 0x8007, 0x0008, 0x8009, 0x0009, 0x8001, 0x8000, 0x8004}) {
        EXPECT_FALSE(m_worker->handleMessage(static_cast<MessageId>(id), message(id))) << id;
    }
    EXPECT_TRUE(nothingSent());
}

TEST_F(IntakeTest, HandlersAreAskedInOrderUntilOneTakesTheMessage)
{
    Taker first(0x0006);
    Taker second(0x0009);
    m_worker->m_handlers.prepend(&second);
    m_worker->m_handlers.prepend(&first);

    m_host->send(message(0x0006));
    m_host->send(message(0x0009));
    EXPECT_TRUE(nothingSent());

    const std::vector<ByteArray> all{message(0x0006), message(0x0009), message(MSG_GetState)};
    EXPECT_EQ(first.m_seen, all);
    EXPECT_EQ(second.m_seen, std::vector<ByteArray>(all.begin() + 1, all.end()));
    EXPECT_TRUE(m_log.errors().empty());
}

TEST_F(IntakeTest, WhatAHandlerSendsGoesOutBeforeTheNextMessageIsHandled)
{
    /// Notes what is handled and what is sent.
    class Notes : public HostLinkTransportLayer, public HostLinkMessageHandler
    {
    public:
        Notes() : HostLinkTransportLayer(memoryLayerPair().first) {}
        int send(const ByteArray& bytes) override
        {
            m_notes.push_back("sent " + HostLinkPrinter::printMessage(bytes));
            return 1;
        }
        bool handleMessage(MessageId id, const ByteArray& bytes) override
        {
            m_notes.push_back("handled " + HostLinkPrinter::printMessage(bytes));
            if (id == MSG_InputEvent) {
                m_worker->sendMessage(HostLinkValueMessage(MSG_LedControl));
                m_worker->sendMessage(HostLinkValueMessage(MSG_SetState));
            }
            return id == MSG_InputEvent;
        }
        void shutdown() override {}

        OpenWorker* m_worker = nullptr;
        Texts m_notes;
    };
    Notes notes;
    notes.m_worker = m_worker.get();
    m_worker->m_handlers.prepend(&notes);
    HostLinkTransportLayer* link = std::exchange(m_worker->m_transport, &notes);

    m_host->send(message(MSG_InputEvent));
    m_host->send(numbers(MSG_GetState, {0x7777}));
    const Texts expected{"handled MSG_InputEvent", "sent MSG_LedControl", "sent MSG_SetState",
                         "handled MSG_GetState 0x7777", "sent MSG_GetStateResponse 0x7777=nil"};
    EXPECT_TRUE(waitFor([&] { return notes.m_notes.size() == expected.size(); }));
    EXPECT_EQ(notes.m_notes, expected);
    m_worker->m_transport = link;
}

TEST_F(IntakeTest, AHandlerThatLeavesTheListMeanwhileSkipsNobody)
{
    class Leaver : public Taker
    {
    public:
        explicit Leaver(QList<HostLinkMessageHandler*>& handlers) : Taker(0), m_handlers(handlers) {}
        bool handleMessage(MessageId id, const ByteArray& bytes) override
        {
            m_handlers.removeAll(this);
            return Taker::handleMessage(id, bytes);
        }

    private:
        QList<HostLinkMessageHandler*>& m_handlers;
    };
    Taker first(0);
    Taker second(0);
    Leaver leaver(m_worker->m_handlers);
    Taker next(0);
    m_worker->m_handlers = {&first, &second, &leaver, &next, m_worker.get()};

    EXPECT_EQ(ask(numbers(MSG_GetState, {0x7777})), "MSG_GetStateResponse 0x7777=nil");
    EXPECT_EQ(next.m_seen.size(), 1U);
    EXPECT_TRUE(nothingSent());
    EXPECT_EQ(leaver.m_seen.size(), 1U);
    EXPECT_EQ(next.m_seen.size(), 2U);
}

TEST_F(IntakeTest, AStateThatNobodyServesIsNilInItsPlace)
{
    createNode(VornPlayerMutePath(), VornValue().setBool(true));
    EXPECT_EQ(ask(numbers(MSG_GetState, {STA_Mute, 0x7777, STA_MicMute})),
              "MSG_GetStateResponse STA_Mute=u8:1 0x7777=nil STA_MicMute=u8:0");
    EXPECT_EQ(m_log.count(log4cplus::DEBUG_LOG_LEVEL, "received getStateMessage"), 1U);
}

TEST_F(IntakeTest, TheVolumeIsAnsweredBeforeAStateThatNobodyServes)
{
    createNode(VornPlayerVolumePath(), VornValue().setI32(30));
    EXPECT_EQ(ask(numbers(MSG_GetState, {9, 0x7777})), "MSG_GetStateResponse STA_Volume=u8:30 0x7777=nil");
}

TEST_F(IntakeTest, AGetWithoutStatesIsAnswered)
{
    EXPECT_EQ(ask(numbers(MSG_GetState, {})), "MSG_GetStateResponse");
}

TEST_F(IntakeTest, AStateAskedTwiceIsAnsweredTwice)
{
    EXPECT_EQ(ask(numbers(MSG_GetState, {STA_Mute, STA_Mute})),
              "MSG_GetStateResponse STA_Mute=u8:0 STA_Mute=u8:0");
}

TEST_F(IntakeTest, TheBytesOfAGetAndItsAnswerAreFixed)
{
    m_host->send(ByteArray{0x00, 0x02, 0x00, 0x07, 0x77, 0x77});
    const ByteArray expected{0x80, 0x02, 0x00, 0x07, 0xCC, 0x00, 0x77, 0x77, 0xC0};
    EXPECT_EQ(m_host->receive(), expected);
}

TEST_F(IntakeTest, ASetOfNothingIsAnswered)
{
    EXPECT_EQ(ask(HostLinkValueMessage(MSG_SetState)), "MSG_SetStateResponse");
    EXPECT_EQ(m_log.count(log4cplus::DEBUG_LOG_LEVEL, "received setStateMessage"), 1U);
}

TEST_F(IntakeTest, EachSetValueIsAnsweredInItsPlace)
{
    const CMValueNode* mute = createNode(VornPlayerMutePath(), VornValue().setBool(false));
    HostLinkValueMessage request(MSG_SetState);
    request.addValueUint8(0x7777, 1);
    request.addValueUint8(STA_Mute, 1);
    request.addValueInt32(STA_MicMute, 1);
    m_log.clear();
    EXPECT_EQ(ask(request), "MSG_SetStateResponse 0x7777=nil STA_Mute=u8:1 STA_MicMute=u8:0");
    EXPECT_EQ(m_log.textsFrom(log4cplus::INFO_LOG_LEVEL), Texts());
    EXPECT_TRUE(waitFor([&] { return mute->value().bool_(); }));
}

TEST_F(IntakeTest, TwoFactoryResetsAreTwoInvocationsHalfASecondLater)
{
    int resets = 0;
    CMActivateNode::create(
        &m_nodes, VornSystemManagerFactoryResetPath(), &m_nodes,
        [&](const CMSetDataRequest& request) {
            EXPECT_TRUE(request.data().toHash().isEmpty());
            ++resets;
        },
        Qt::QueuedConnection);
    createNode(VornKestalPrimeFactroryResetRequiredPath(), VornValue().setI32(3));

    QElapsedTimer sinceRequest;
    sinceRequest.start();
    HostLinkValueMessage request(MSG_SetState);
    request.addValueString(STA_TarkoFactoryReset, "not read");
    request.addValueUint8(STA_Mute, 1);
    request.addValueNil(STA_TarkoFactoryReset);
    EXPECT_EQ(ask(request),
              "MSG_SetStateResponse STA_TarkoFactoryReset=u8:1 STA_Mute=u8:1 STA_TarkoFactoryReset=u8:1");
    EXPECT_EQ(m_log.count(log4cplus::DEBUG_LOG_LEVEL, "TarkoFactoryReset received"), 2U);
    EXPECT_TRUE(m_log.infos().empty());

    EXPECT_TRUE(waitFor([&] { return resets == 2; }));
    EXPECT_GE(sinceRequest.elapsed(), 499);
    EXPECT_EQ(m_log.infos(), Texts(2, "!!! Triggering Factory Reset !!!"));
    EXPECT_EQ(ask(numbers(MSG_GetState, {STA_TarkoFactoryReset})),
              "MSG_GetStateResponse STA_TarkoFactoryReset=u8:3");
}

TEST_F(IntakeTest, PushedStatesThatTheModuleDoesNotTakeAreNamedAndDropped)
{
    for (const MessageId id : {MSG_StateChanged, MSG_GetStateResponse}) {
        m_log.clear();
        HostLinkValueMessage event(id);
        event.addValueUint8(STA_Mute, 1);
        event.addValueNil(0x7777);
        m_host->send(event);
        EXPECT_TRUE(nothingSent());
        EXPECT_EQ(m_log.infos(), (Texts{"Unsupported state 7", "Unsupported state 30583"}));
        EXPECT_EQ(m_log.count(log4cplus::DEBUG_LOG_LEVEL, "received state changed event, size "
                                                              + std::to_string(event.serialize().size())),
                  1U);
    }
}

TEST_F(IntakeTest, AHostThatAsksForItRenewsTheSubscriptionOfTheModule)
{
    HostLinkValueMessage event(MSG_StateChanged);
    event.addValueUint8(STA_HostResubscribe, 0);
    EXPECT_EQ(ask(event), "MSG_Subscribe STA_HostMicMute");
    EXPECT_EQ(m_log.debugs().back(), "Subscribing for 61443");
    EXPECT_TRUE(m_log.infos().empty());
    EXPECT_TRUE(nothingSent());
}

TEST_F(IntakeTest, TheAnswerToAQueryRenewsTheSubscriptionOfTheModuleToo)
{
    HostLinkValueMessage answer(MSG_GetStateResponse);
    answer.addValueString(STA_HostFirmwareVersion, "1");
    answer.addValueNil(STA_HostResubscribe);
    answer.addValueUint8(STA_HostMicMute, 1);
    EXPECT_EQ(ask(answer), "MSG_Subscribe STA_HostMicMute");
    EXPECT_TRUE(nothingSent());
    EXPECT_EQ(valueAt(VornHostLinkHostFirmwareVersion()), VornValue().setString("1"));
    EXPECT_EQ(valueAt(VornHostlinkMicMutePath()), VornValue().setBool(true));
    EXPECT_TRUE(m_log.infos().empty());
}

TEST_F(IntakeTest, WhatCannotBeAnsweredIsHandledAllTheSame)
{
    const CMValueNode* mute = createNode(VornPlayerMutePath(), VornValue().setBool(false));
    HostLinkValueMessage set(MSG_SetState);
    set.addValueUint8(STA_Mute, 1);
    m_worker->m_transport->stop();
    m_log.clear();

    EXPECT_TRUE(m_worker->handleMessage(MSG_GetState, numbers(MSG_GetState, {STA_Mute})));
    EXPECT_TRUE(m_worker->handleMessage(MSG_SetState, set.serialize()));
    EXPECT_TRUE(waitFor([&] { return mute->value().bool_(); }));
    EXPECT_TRUE(m_worker->handleMessage(MSG_Subscribe, numbers(MSG_Subscribe, {STA_Mute, STA_Volume})));
    EXPECT_TRUE(m_worker->handleMessage(MSG_Unsubscribe, numbers(MSG_Unsubscribe, {STA_Volume})));
    EXPECT_EQ(m_worker->m_subscribedStates, QSet<State>{STA_Mute});
    HostLinkValueMessage resubscribe(MSG_StateChanged);
    resubscribe.addValueNil(STA_HostResubscribe);
    resubscribe.addValueUint8(STA_HostMicMute, 1);
    EXPECT_TRUE(m_worker->handleMessage(MSG_StateChanged, resubscribe.serialize()));
    EXPECT_EQ(valueAt(VornHostlinkMicMutePath()), VornValue().setBool(true));
    EXPECT_TRUE(m_log.errors().empty());

    m_worker->on_message_received(QByteArray("\x00\x42", 2));
    EXPECT_EQ(m_log.errors(), Texts{"Unhandled message id:66"});
}

/// A message whose last number or value is cut off, and what is made of the rest.
struct CutMessage {
    const char* name;
    ByteArray bytes;
    Texts answers;
    int subscribed; ///< how many states are then

    friend std::ostream& operator<<(std::ostream& to, const CutMessage& message)
    {
        return to << message.name;
    }
};

class CutMessageTest : public IntakeTest, public ::testing::WithParamInterface<CutMessage>
{
};

TEST_P(CutMessageTest, EverythingWholeInFrontIsHandled)
{
    createNode(VornPlayerMutePath(), VornValue().setBool(true));
    ask(numbers(MSG_Subscribe, {STA_MicMute}));
    receive();
    m_log.clear();

    ASSERT_NE(m_host->send(GetParam().bytes), 0);
    for (const std::string& answer : GetParam().answers) {
        EXPECT_EQ(receive(), answer);
    }
    EXPECT_TRUE(nothingSent());
    EXPECT_EQ(m_worker->m_subscribedStates.size(), GetParam().subscribed);
    EXPECT_TRUE(m_log.errors().empty());
}

TEST_P(CutMessageTest, NoShorterOneIsAnError)
{
    for (ByteArray bytes = GetParam().bytes; bytes.size() >= 2; bytes.pop_back()) {
        ASSERT_NE(m_host->send(bytes), 0);
    }
    ASSERT_NE(m_host->send(numbers(MSG_GetState, {0x7777})), 0);
    std::string answer;
    do {
        answer = receive();
    } while (answer != "MSG_GetStateResponse 0x7777=nil" && answer != HostLinkPrinter::printMessage({}));
    EXPECT_EQ(answer, "MSG_GetStateResponse 0x7777=nil");
    EXPECT_TRUE(m_log.errors().empty());
    EXPECT_TRUE(m_log.infos().empty());
}

const CutMessage kCutMessages[] = {
    {"Get", {0, 2, 0, 7, 0}, {"MSG_GetStateResponse STA_Mute=u8:1"}, 1},
    {"GetOfNothing", {0, 2, 0}, {"MSG_GetStateResponse"}, 1},
    {"Set", {0, 1, 0, 7, 0xCC, 1, 0, 34, 0xCC}, {"MSG_SetStateResponse STA_Mute=u8:1"}, 1},
    {"SetOfATag", {0, 1, 0}, {"MSG_SetStateResponse"}, 1},
    {"SetOfAText", {0, 1, 0, 1, 0xDA, 0, 3, 'a', 'b'}, {"MSG_SetStateResponse"}, 1},
    {"SetOfAnotherFormat", {0, 1, 0, 7, 1, 0, 7, 0xCC, 1}, {"MSG_SetStateResponse"}, 1},
    {"Subscribe", {0, 3, 0, 7, 0}, {"MSG_SubscribeResponse STA_Mute", "MSG_StateChanged STA_Mute=u8:1"}, 2},
    {"Unsubscribe", {0, 5, 0, 34, 0}, {"MSG_UnsubscribeResponse STA_MicMute"}, 0},
    {"UnsubscribeOfHalfAState", {0, 5, 0}, {"MSG_UnsubscribeResponse"}, 1},
    {"StateChanged", {0, 4, 0xF0, 4, 0xC0, 0xF0, 3, 0xCC}, {"MSG_Subscribe STA_HostMicMute"}, 1},
    {"GetResponse", {0x80, 2, 0xF0, 4, 0xC0, 0xF0}, {"MSG_Subscribe STA_HostMicMute"}, 1},
    {"SetResponse", {0x80, 1, 0xF0, 2, 0xCC}, {}, 1},
    {"SubscribeResponse", {0x80, 3, 0xF0, 3, 0xF0}, {}, 1},
    {"UnsubscribeResponse", {0x80, 5, 0xF0, 3, 0xF0}, {}, 1},
    {"ErrorResponse", {0x80, 0, 0}, {}, 1},
};

INSTANTIATE_TEST_SUITE_P(Kinds, CutMessageTest, ::testing::ValuesIn(kCutMessages),
                         [](const auto& test) { return test.param.name; });

TEST_F(IntakeTest, AnAnswerThatIsCutOffIsLoggedForItsWholeNumbers)
{
    m_worker->handleMessage(MSG_SubscribeResponse, ByteArray{0x80, 3, 0xF0, 3, 0xF0});
    m_worker->handleMessage(MSG_UnsubscribeResponse, ByteArray{0x80, 5, 0xF0, 3, 0xF0});
    const Texts expected{
        "received response to subscribe event",
        "successfully subscribed to 61443",
        "received response to unsubscribe event",
        "successfully unsubscribed from 61443",
    };
    EXPECT_EQ(m_log.debugs(), expected);
}

TEST_F(IntakeTest, TheAnswersToTheSubscriptionsOfTheModuleAreLogged)
{
    m_host->send(numbers(MSG_SubscribeResponse, {STA_HostMicMute, 9}));
    m_host->send(numbers(MSG_UnsubscribeResponse, {STA_HostMicMute}));
    ASSERT_TRUE(nothingSent());
    const Texts expected{
        "Incoming message id: 32771",
        "received response to subscribe event",
        "successfully subscribed to 61443",
        "successfully subscribed to 9",
        "Incoming message id: 32773",
        "received response to unsubscribe event",
        "successfully unsubscribed from 61443",
        "Incoming message id: 2",
        "received getStateMessage",
    };
    EXPECT_EQ(m_log.debugs(), expected);
}

TEST_F(IntakeTest, AGetOfAllServedStatesAnswersEachInOrderOnce)
{
    HostLinkUInt16Message request(MSG_GetState);
    for (const ProxyRow& row : kProxies) {
        for (const State state : row.states) {
            request.addValue(state);
        }
    }
    ASSERT_NE(m_host->send(request), 0);
    const HostLinkValueMessage reply(m_host->receive());
    int i = 0;
    for (const ProxyRow& row : kProxies) {
        const bool isCommand = row.proxy == ProxyClass::HostCommandProxy;
        for (const State state : row.states) {
            if (state == STA_BluetoothOutgoingCall || state == STA_TarkoSampleRate) {
                continue; // without a value: it can only be written, nothing plays
            }
            const bool isNil = isCommand || findState(state)->read == WireType::None;
            const WireType type = isNil ? WireType::Nil : findState(state)->read;
            EXPECT_EQ(reply.getTag(i), state);
            EXPECT_EQ(reply.getEnc(i), wireTypeEncoding(type));
            ++i;
        }
    }
    EXPECT_EQ(reply.size(), i);
}

/// What a flooding peer gets through while the worker does not run: its own queue and the window.
TEST_F(IntakeTest, APeerThatSendsFasterThanTheWorkerHandlesIsHeldBack)
{
    ASSERT_TRUE(nothingSent());
    const HostLinkCore::Settings limits;
    const auto bulk = static_cast<std::size_t>(MessageClass::Bulk);
    HostLinkValueMessage chunk(MSG_DataTransfer);
    chunk.addValueBin16(0, ByteArray(1000, 0x55));
    const std::size_t size = chunk.serialize().size();
    const std::size_t most = (limits.queueBytes[bulk] + limits.creditBytes[bulk]) / size + 2;

    std::size_t taken = 0;
    const auto takesOneMore = [&] {
        const QDeadlineTimer full(std::chrono::milliseconds(300));
        while (m_host->send(chunk) == 0) {
            if (full.hasExpired()) {
                return false;
            }
            std::this_thread::yield();
        }
        return true;
    };
    while (taken <= most && takesOneMore()) {
        ++taken;
    }
    EXPECT_LE(taken, most);
    EXPECT_GT(taken, limits.creditBytes[bulk] / size);

    for (std::size_t i = 0; i < taken; ++i) {
        ASSERT_EQ(receive(), "MSG_ErrorResponse MSG_DataTransfer=nil") << i;
    }
    EXPECT_EQ(ask(chunk), "MSG_ErrorResponse MSG_DataTransfer=nil");
}

} // namespace
