// A host that says anything to a whole module, in messages that are right and in any bytes, while time
// passes, nodes change and are invoked. What the module sends must fit what was said.

#include "modules/hostlink/HostLinkWorker.h"

#include <QTemporaryFile>
#include <deque>
#include <map>
#include <set>

#include "HandlerFuzz.h"
#include "ServiceNodes.h"
#include "modules/hostlink/UInputHandler.h"
#include "platform/hostlink/HexText.h"
#include "platform/hostlink/HostLinkPhysicalLayer.h"
#include "platform/hostlink/HostLinkTrace.h"
#include "platform/hostlink/HostLinkUInt16Message.h"
#include "platform/hostlink/HostLinkValueMessage.h"
#include "platform/sdk/Paths.h"
#include "platform/sdk/VornHostLinkDataTransfer.h"
#include "platform/sdk/VornJson.h"
#include "vocabulary/HostNodes.h"
#include "vocabulary/Proxies.h"

namespace
{

using namespace std::chrono_literals;
using Transfer = VornHostLinkDataTransferParameters;

constexpr std::size_t kMaxScript = 400;

/// A kernel without an input device, so that no input presses a key of this machine.
class NoKernel : public UInputSystem
{
public:
    int open(const char*, int) override { return -1; }
    int ioctl(int, unsigned long, int) override { return -1; }
    std::ptrdiff_t write(int, const void*, std::size_t) override { return -1; }
    int close(int) override { return -1; }
};

/// One worker for all inputs, since its transport is never released; a new one where an input has ended the
/// link.
class FuzzedWorker : public CMHostLinkWorker
{
public:
    FuzzedWorker() : CMHostLinkWorker({})
    {
        static NoKernel noKernel;
        delete m_handlers.takeFirst();
        m_handlers.prepend(new UInputHandler(this, noKernel));
    }

    void forgetSubscriptions() { m_subscribedStates.clear(); }
};

/// The files that can be pushed: none, an empty one, and one of 4 chunks of 128 bytes and a short one.
QString fileName(int number)
{
    static QTemporaryFile files[2];
    if (number > 1) {
        return "/nowhere/a-file";
    }
    if (!files[number].isOpen()) {
        require(files[number].open());
        files[number].write(QByteArray(number * (4 * 128 + 5), 'x'));
        files[number].flush();
    }
    return files[number].fileName();
}

/// What the worker has given its transport, taken or not, in order.
std::deque<ByteArray>& sentMessages()
{
    static auto& messages = *new std::deque<ByteArray>;
    return messages;
}

void noteTraced(const std::string& line)
{
    static const std::string start = "> message ";
    if (line.compare(0, start.size(), start) == 0) {
        const std::optional<ByteArray> message = parseHex(line.substr(line.rfind(' ') + 1));
        require(message.has_value());
        sentMessages().push_back(*message);
    }
}

/// Value `index` alone.
ByteArray valueOf(const HostLinkValueMessage& message, int index)
{
    HostLinkValueMessage alone(MSG_StateChanged);
    alone.addValueOf(message, index);
    return alone.serialize();
}

/// All that a handler sends is whole and well formed.
HostLinkValueMessage valuesOf(const ByteArray& bytes)
{
    const HostLinkValueMessage message(bytes);
    require(message.serialize() == bytes);
    return message;
}

std::vector<std::uint16_t> tagsOf(const HostLinkValueMessage& message)
{
    std::vector<std::uint16_t> tags;
    for (int i = 0; i < message.size(); ++i) {
        tags.push_back(message.getTag(i));
    }
    return tags;
}

std::vector<std::uint16_t> numbersOf(const HostLinkUInt16Message& message)
{
    std::vector<std::uint16_t> numbers;
    for (int i = 0; i < message.size(); ++i) {
        numbers.push_back(message.get(i));
    }
    return numbers;
}

/// `part` is what is left of `whole` when some are taken out.
bool isPart(const std::vector<std::uint16_t>& part, const std::vector<std::uint16_t>& whole)
{
    auto at = whole.begin();
    return std::all_of(part.begin(), part.end(), [&](std::uint16_t number) {
        at = std::find(at, whole.end(), number);
        return at != whole.end() && (++at, true);
    });
}

/// Plays a script to a worker.
class Talk
{
public:
    Talk(FuzzScript script, FuzzedWorker& worker) : m_script(script), m_worker(worker) { begin(); }

    void play()
    {
        while (!m_script.empty() && !m_hasEndedLink) {
            act();
            takeEvents();
        }
        SimulatedEvents::instance().pass(1s); // leaves nothing for the next input
        takeEvents();
        if (!m_hasEndedLink) {
            finish();
        }
    }

    bool hasEndedLink() const { return m_hasEndedLink; }

private:
    /// What is left of an earlier input is brought to what it always is at first.
    void begin()
    {
        m_worker.forgetSubscriptions();
        m_nodes.createOthers();
        sentMessages().clear(); // what a new worker announces
        invoke(VornHostLinkDataTransferPath(), Transfer().setAction(Transfer::Stop));
        HostLinkValueMessage pushed(MSG_StateChanged);
        pushed.addValueUint8(STA_HostMicMute, 0);
        pushed.addValueString(STA_HostFirmwareVersion, "");
        pushed.addValueString(STA_HostSystemInfo, "");
        deliver(pushed.serialize());
        write(VornHostLinkHeadphonesConnectedPath(), VornValue().setBool(false));
        write(VornHostLinkAudioBalancePath(), VornValue().setI32(0));
        write(VornHostLinkKestalPrimeBtConnectionStatePath(), VornValue().setI32(0));
        write(VornHostLinkKestalPrimeBtFirmwareVersion(), VornValue().setString(QString()));
        HostLinkUInt16Message everything(MSG_GetState); // what is handed over once, is
        for (const StateRow& row : kStates) {
            everything.addValue(row.id);
        }
        deliver(everything.serialize());
        HandlerFuzz::runEvents();
        sentMessages().clear();
    }

    void act()
    {
        const std::uint8_t action = m_script.byte();
        const int count = 1 + (action >> 4);
        switch (action & 0x0F) {
        case 0: get(count); break;
        case 1: set(count); break;
        case 2: subscribe(count); break;
        case 3: unsubscribe(count); break;
        case 4: push(count); break;
        case 5: answerChunk(); break;
        case 6: sayBytes(m_script.bytes(m_script.byte())); break;
        case 7: SimulatedEvents::instance().pass(std::chrono::milliseconds(m_script.byte())); break;
        case 8: SimulatedEvents::instance().pass(std::chrono::milliseconds(m_script.byte() * 100)); break;
        case 9: HandlerFuzz::runEvents(); break;
        case 10: writeNode(); break;
        case 11: writeJson(); break;
        case 12: invokeNode(); break;
        case 13: startTransfer(action >> 4); break;
        case 14: sayNumbers(MSG_SubscribeResponse, count); break;
        case 15: press(count); break;
        }
    }

    // What a host says.

    State state()
    {
        const std::uint8_t choice = m_script.byte();
        return choice < kStates.size() ? kStates[choice].id : State(m_script.number());
    }

    HostLinkUInt16Message numbers(MessageId id, int count)
    {
        HostLinkUInt16Message message(id);
        for (; count > 0; --count) {
            message.addValue(state());
        }
        return message;
    }

    void addValue(State state, WireType type, HostLinkValueMessage* message)
    {
        switch (type) {
        case WireType::None:
        case WireType::Nil: message->addValueNil(state); break;
        case WireType::U8: message->addValueUint8(state, m_script.byte()); break;
        case WireType::U16: message->addValueUint16(state, m_script.number()); break;
        case WireType::U32: message->addValueUint32(state, std::uint32_t(number())); break;
        case WireType::I8: message->addValueInt8(state, std::int8_t(m_script.byte())); break;
        case WireType::I32: message->addValueInt32(state, std::int32_t(number())); break;
        case WireType::I64: message->addValueInt64(state, number()); break;
        case WireType::Str: message->addValueString(state, text()); break;
        case WireType::Bin: message->addValueBin16(state, m_script.bytes(m_script.byte())); break;
        }
    }

    /// Small ones, and those at the ends of what types hold.
    std::int64_t number()
    {
        const std::uint8_t choice = m_script.byte();
        const auto low = std::int64_t(m_script.byte()) - 128;
        switch (choice >> 5) {
        case 0: return low;
        case 1: return std::numeric_limits<std::int32_t>::max() + low;
        case 2: return std::numeric_limits<std::int32_t>::min() + low;
        case 3: return std::numeric_limits<std::int64_t>::max() - 255 + low;
        case 4: return std::numeric_limits<std::int64_t>::min() + 255 + low;
        default: return choice & 0x1F;
        }
    }

    std::string text()
    {
        const ByteArray bytes = m_script.bytes(m_script.byte());
        return std::string(bytes.begin(), bytes.end());
    }

    HostLinkValueMessage values(MessageId id, int count)
    {
        HostLinkValueMessage message(id);
        for (; count > 0; --count) {
            const State chosen = state();
            const StateRow* row = findState(chosen);
            const std::uint8_t type = m_script.byte();
            const bool isRight = type < 200 && row != nullptr && row->write != WireType::None;
            addValue(chosen, isRight ? row->write : kWireTypes[type % kWireTypes.size()].type, &message);
        }
        return message;
    }

    void get(int count)
    {
        const HostLinkUInt16Message request = numbers(MSG_GetState, count);
        const HostLinkValueMessage reply = valuesOf(answerTo(request.serialize(), MSG_GetStateResponse));
        require(isPart(tagsOf(reply), numbersOf(request)));
    }

    void set(int count)
    {
        const HostLinkValueMessage request = values(MSG_SetState, count);
        const HostLinkValueMessage reply = valuesOf(answerTo(request.serialize(), MSG_SetStateResponse));
        require(isPart(tagsOf(reply), tagsOf(request)));
    }

    void subscribe(int count)
    {
        const HostLinkUInt16Message request = numbers(MSG_Subscribe, count);
        const HostLinkUInt16Message reply(answerTo(request.serialize(), MSG_SubscribeResponse));
        std::vector<std::uint16_t> added;
        for (const std::uint16_t state : numbersOf(request)) {
            if (m_subscribed.insert(state).second) {
                added.push_back(state);
            }
        }
        require(numbersOf(reply) == added);
    }

    void unsubscribe(int count)
    {
        const HostLinkUInt16Message request = numbers(MSG_Unsubscribe, count);
        const HostLinkUInt16Message reply(answerTo(request.serialize(), MSG_UnsubscribeResponse));
        std::vector<std::uint16_t> removed;
        for (const std::uint16_t state : numbersOf(request)) {
            if (m_subscribed.erase(state) > 0) {
                removed.push_back(state);
                m_latest.erase(state);
            }
        }
        require(numbersOf(reply) == removed);
    }

    /// States of the host, or any.
    void push(int count)
    {
        HostLinkValueMessage event(MSG_StateChanged);
        for (; count > 0; --count) {
            const std::uint8_t choice = m_script.byte();
            const State chosen = choice < 200 ? kHostNodes[choice % kHostNodes.size()].state : state();
            const std::uint8_t type = m_script.byte();
            const StateRow* row = findState(chosen);
            const bool isRight = type < 200 && row != nullptr;
            addValue(chosen, isRight ? row->write : kWireTypes[type % kWireTypes.size()].type, &event);
        }
        deliver(event.serialize());
    }

    void answerChunk()
    {
        HostLinkValueMessage answer(MSG_DataTransferResponse);
        answer.addValueInt32(0, std::int8_t(m_script.byte()));
        deliver(answer.serialize());
    }

    void sayNumbers(MessageId id, int count) { deliver(numbers(id, count).serialize()); }

    void press(int count)
    {
        HostLinkValueMessage event(MSG_InputEvent);
        for (; count > 0; --count) {
            event.addValueUint16(m_script.byte(), m_script.number());
        }
        deliver(event.serialize());
        require(sentMessages().empty());
    }

    static bool isHandled(MessageId id)
    {
        switch (id) {
        case MSG_SetState:
        case MSG_GetState:
        case MSG_StateChanged:
        case MSG_InputEvent:
        case MSG_GetStateResponse:
        case MSG_SubscribeResponse:
        case MSG_UnsubscribeResponse:
        case MSG_DataTransferResponse: return true;
        default: return false;
        }
    }

    /// A request without a handler is refused by its id, a response without one dropped.
    void sayBytes(const ByteArray& bytes)
    {
        const MessageId id = HostLinkMessage::messageId(bytes);
        if (id == MSG_Subscribe || id == MSG_Unsubscribe) {
            return; // subscriptions are counted where they are made
        }
        deliver(bytes);
        if (isHandled(id)) {
            return;
        }
        if (id != 0 && !HostLinkMessage::isResponseMessageId(id)) {
            const HostLinkValueMessage refusal = valuesOf(next(MSG_ErrorResponse));
            require(tagsOf(refusal) == std::vector<std::uint16_t>{id});
            require(wireTypeOfEncoding(refusal.getEnc(0)) == WireType::Nil);
        }
        require(sentMessages().empty());
    }

    // What happens in the module.

    CMPath path()
    {
        const std::uint8_t choice = m_script.byte();
        return choice < kNodes.size()
                   ? CMPath(kNodes[choice].node)
                   : VornRoonSignalPathCustomElement().appendSubpath(QString::number(choice));
    }

    static void write(const CMPath& path, const VornValue& value)
    {
        CMRoot()->setValue(path, value, CMVoidReply(new CMReplyData<QVariant>));
    }

    static void invoke(const CMPath& path, const VornHash& data)
    {
        CMRoot()->invoke(path, data, CMVoidReply(new CMReplyData<QVariant>));
    }

    /// A value of the type that is there.
    void writeNode()
    {
        const CMPath chosen = path();
        const VornValue::Type type = VornValue(VornHash(CMRoot()->getValue(chosen).toHash())).type();
        bool isTaken = false;
        VornValue value = VornValue::fromScalar(type, qlonglong(number()), &isTaken);
        if (!isTaken) {
            value = VornValue::fromScalar(type, (m_script.byte() & 1) != 0, &isTaken);
        }
        if (!isTaken) {
            value = VornValue::fromScalar(type, QString::fromStdString(text()), &isTaken);
        }
        write(chosen, value);
    }

    VornHash json() { return VornJson::parse(QString::fromStdString(text()), nullptr).toHash(); }

    void writeJson()
    {
        const CMPath chosen = path();
        write(chosen, json());
    }

    void invokeNode()
    {
        const CMPath chosen = path();
        if (chosen != VornHostLinkDataTransferPath()) { // which would send any file of this machine
            invoke(chosen, json());
        }
    }

    void startTransfer(int choice)
    {
        Transfer params;
        params.setAction(choice & 1).setFileName(fileName(choice >> 1 & 3)).setChunkSize(128);
        params.setCrc((choice & 8) != 0).setTimeout(m_script.byte() * 10);
        invoke(VornHostLinkDataTransferPath(), params);
    }

    // What the module says.

    void deliver(const ByteArray& message)
    {
        takeEvents();
        const QByteArray bytes(reinterpret_cast<const char*>(message.data()), int(message.size()));
        m_worker.on_message_received(bytes);
    }

    ByteArray next(MessageId id)
    {
        require(!sentMessages().empty());
        const ByteArray message = sentMessages().front();
        sentMessages().pop_front();
        require(HostLinkMessage::messageId(message) == id);
        return message;
    }

    /// A request is answered at once, and once.
    ByteArray answerTo(const ByteArray& request, MessageId id)
    {
        deliver(request);
        const ByteArray answer = next(id);
        for (const ByteArray& other : sentMessages()) {
            require(!HostLinkMessage::isResponseMessageId(HostLinkMessage::messageId(other)));
        }
        return answer;
    }

    void takeEvents()
    {
        for (; !sentMessages().empty(); sentMessages().pop_front()) {
            takeMessage(sentMessages().front());
        }
    }

    void takeMessage(const ByteArray& bytes)
    {
        switch (HostLinkMessage::messageId(bytes)) {
        case MSG_StateChanged: takeEvent(valuesOf(bytes)); break;
        case MSG_Unsubscribe: m_hasEndedLink = true; break;
        case MSG_Subscribe:
        case MSG_GetState: break;
        case MSG_SetState:
        case MSG_GetStateResponse:
        case MSG_SetStateResponse:
        case MSG_DataTransfer: valuesOf(bytes); break;
        default: require(false);
        }
    }

    void takeEvent(const HostLinkValueMessage& event)
    {
        require(event.size() > 0);
        for (int i = 0; i < event.size(); ++i) {
            const std::uint16_t state = event.getTag(i);
            require(m_subscribed.count(state) == 1);
            m_latest[state] = valueOf(event, i);
        }
    }

    /// Whether a state's events hold what a read of it brings: not those that are handed over once, nor that
    /// under which the channel of the Dirac stimuli goes out.
    static bool isReadAsTold(State state)
    {
        const ProxyRow* row = findProxy(state);
        return row != nullptr && row->proxy != ProxyClass::HostCommandProxy && state != STA_HaloBrightness;
    }

    /// When all is quiet, the latest event of a state holds the value that it has.
    void finish()
    {
        HostLinkUInt16Message request(MSG_GetState);
        for (const auto& [state, value] : m_latest) {
            if (isReadAsTold(State(state))) {
                request.addValue(state);
            }
        }
        const HostLinkValueMessage reply = valuesOf(answerTo(request.serialize(), MSG_GetStateResponse));
        for (int i = 0; i < reply.size(); ++i) {
            require(m_latest[reply.getTag(i)] == valueOf(reply, i));
        }
    }

    FuzzScript m_script;
    FuzzedWorker& m_worker;
    ServiceNodes m_nodes;
    std::set<std::uint16_t> m_subscribed;
    std::map<std::uint16_t, ByteArray> m_latest; ///< of each state, a value of an event
    bool m_hasEndedLink = false;
};

} // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    HandlerFuzz::initialize(argc, argv);
    registerSdkMetaTypes();
    HostLinkTrace::setSink(noteTraced);
    HostLinkPhysicalLayer::registerType("i2c", [](const HostLinkPhysicalLayer::Properties&) {
        return MemoryLine::makeEnd(std::make_shared<MemoryLine>(), 0);
    });
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static auto worker = std::make_unique<FuzzedWorker>();
    Talk talk(FuzzScript(data, std::min(size, kMaxScript)), *worker);
    talk.play();
    if (talk.hasEndedLink()) {
        HostLinkTransportLayer::stopAll();
        worker.reset();
        worker = std::make_unique<FuzzedWorker>();
    }
    return 0;
}
