#include "platform/hostlink/HostLinkCore.h"

#include <algorithm>
#include <random>
#include <string>
#include <utility>

#include "platform/hostlink/BigEndian.h"
#include "platform/hostlink/HostLinkFrame.h"
#include "platform/hostlink/HostLinkHello.h"
#include "platform/hostlink/HostLinkLog.h"
#include "platform/hostlink/HostLinkMessage.h"
#include "platform/hostlink/HostLinkPrinter.h"
#include "platform/hostlink/HostLinkReceiver.h"
#include "platform/hostlink/HostLinkSender.h"
#include "platform/hostlink/HostLinkTrace.h"

using namespace std::chrono_literals;

namespace
{
// An end that has transmitted nothing for so long says that it lives: twice before its peer takes it for
// dead.
constexpr HostLinkDuration kKeepAlive = 1250ms;
static_assert(2 * kKeepAlive < HostLinkCore::kSilence);

// Between hellos that nobody answers; each is twice as long as the one before.
constexpr HostLinkDuration kFirstHello = 200ms;
constexpr HostLinkDuration kLastHello = 1s;

constexpr std::size_t kGoodbyeSize = 8;

// What is damaged and not longer than an acknowledgement on its own was no sequenced frame.
constexpr std::size_t kAckEncodedSize = HostLinkFrame::kHeader + HostLinkFrame::kCrc + 1;

std::uint64_t drawFromSystem()
{
    std::random_device device;
    return std::uint64_t(device()) << 32 | device();
}

std::string endText(const char* why, std::size_t messages)
{
    const std::string text = std::string("session ended, ") + why;
    return messages == 0 ? text
                         : text + ": " + std::to_string(messages) + (messages == 1 ? " message" : " messages")
                               + " meant for the former session discarded";
}
} // namespace

struct HostLinkCore::Private {
    explicit Private(Settings given);

    std::uint64_t drawInstance();

    void greet(HostLinkTime now);
    void checkTimers(HostLinkTime now);
    void receiveFrame(const HostLinkFrame& frame, HostLinkTime now);
    void receiveHello(const HostLinkFrame& frame, HostLinkTime now);
    void receiveGoodbye(const HostLinkFrame& frame, HostLinkTime now);
    void receiveRefusal();
    void receiveSequenced(const HostLinkFrame& frame, HostLinkTime now);
    void receiveCredit(const HostLinkFrame& frame);

    void learnPeer(std::uint64_t instance, HostLinkTime now);
    bool joinSession(const HostLinkHello& hello);
    void endSession(const char* why, bool forGood = false);
    void endForGood(const char* why, HostLinkTime now);

    bool mayQueue(MessageClass messageClass, std::size_t size) const;
    bool queue(const ByteArray& message, HostLinkTime now);
    void sayIfTooLong(MessageClass messageClass, const ByteArray& message) const;
    static void sayDown(bool& said, const char* why);

    Bytes transmitHello(HostLinkTime now);
    Bytes transmitGoodbye(HostLinkTime now);
    Bytes transmitNumbered(HostLinkTime now);
    Bytes transmitAcknowledgement(std::uint8_t control, bool zeroFirst, HostLinkTime now);
    Bytes transmitFrame(HostLinkFrame frame, bool zeroFirst, HostLinkTime now);

    Settings settings;
    HostLinkFrameEncoder encoder;
    HostLinkFrameDecoder decoder;
    HostLinkSender sender;
    HostLinkReceiver receiver;
    Counters counters;

    bool lineIsUp = false;
    bool closed = false; ///< goodbye was said
    bool goodbyeDue = false;
    bool refused = false;
    bool versionWarned = false;
    bool silenceSaid = false;    ///< and the peer has not answered since
    bool noProgressSaid = false; ///< and the peer has acknowledged nothing since

    // Greeting: hellos are exchanged and nothing else counts, until the peer has named this instance.
    bool greeting = true;
    bool helloDue = false;
    HostLinkDuration helloInterval = kFirstHello;
    HostLinkTime helloDeadline = HostLinkTime::max();

    std::uint64_t instance;
    std::uint64_t peer = 0;        ///< the instance on the other side, 0 while unknown
    std::uint64_t superseded = 0;  ///< the one before it on this line: a late hello of it means nothing
    bool joined = false;           ///< a session with `peer` was established
    std::uint32_t granted[2] = {}; ///< credit at the beginning of the session with `peer`

    Session session = Session::Never;
    std::uint64_t sessions = 0;
    HostLinkTime lastReceived;
    HostLinkTime lastSent;
};

HostLinkCore::Private::Private(Settings given)
    : settings(std::move(given)), sender(settings.queueBytes, settings.pollTime),
      receiver(settings.creditBytes, settings.pollTime), instance(drawInstance())
{
}

std::uint64_t HostLinkCore::Private::drawInstance()
{
    const std::uint64_t drawn = settings.drawInstance ? settings.drawInstance() : drawFromSystem();
    return drawn == 0 ? 1 : drawn;
}

HostLinkCore::HostLinkCore(Settings settings) : d(std::make_unique<Private>(std::move(settings))) {}

HostLinkCore::~HostLinkCore() = default;

void HostLinkCore::lineUp(HostLinkTime now)
{
    HostLinkTrace::line("up");
    d->lineIsUp = true;
    d->refused = false;
    d->versionWarned = false;
    d->superseded = 0;
    d->decoder.reset();
    d->greet(now);
}

void HostLinkCore::lineDown(HostLinkTime)
{
    HostLinkTrace::line("down");
    d->lineIsUp = false;
    d->greeting = true;
    d->decoder.reset();
}

void HostLinkCore::receive(const std::uint8_t* bytes, std::size_t size, HostLinkTime now)
{
    if (!d->lineIsUp || d->closed) {
        return;
    }
    d->counters.bytesReceived += size;
    d->sender.heard(size, now);
    const std::uint8_t* const end = bytes + size;
    for (;;) {
        const HostLinkFrameDecoder::Result result = d->decoder.next(bytes, end);
        if (result == HostLinkFrameDecoder::Result::More) {
            return;
        }
        if (result == HostLinkFrameDecoder::Result::Frame) {
            HostLinkTrace::frame(HostLinkTrace::Direction::In, d->decoder.frame());
            d->receiveFrame(d->decoder.frame(), now);
            continue;
        }
        HostLinkTrace::damaged(d->decoder.damagedSize());
        ++d->counters.framesDamaged;
        if (!d->greeting && d->decoder.damagedSize() > kAckEncodedSize) {
            d->receiver.damaged(now);
        }
    }
}

HostLinkCore::Bytes HostLinkCore::transmit(HostLinkTime now)
{
    if (!d->lineIsUp) {
        return {nullptr, 0};
    }
    if (d->closed) {
        return d->goodbyeDue ? d->transmitGoodbye(now) : Bytes{nullptr, 0};
    }
    d->sender.lineFree(now);
    d->checkTimers(now);
    if (d->helloDue) {
        return d->transmitHello(now);
    }
    if (d->greeting) {
        return {nullptr, 0};
    }
    if (d->receiver.nakDue()) {
        return d->transmitAcknowledgement(HostLinkControl::Nak, true, now);
    }
    const Bytes numbered = d->transmitNumbered(now);
    if (numbered.size > 0) {
        return numbered;
    }
    if (now - d->lastSent >= kKeepAlive) {
        return d->transmitAcknowledgement(HostLinkControl::Ack, true, now);
    }
    if (d->receiver.ackDue(now)) {
        return d->transmitAcknowledgement(HostLinkControl::Ack, false, now);
    }
    return {nullptr, 0};
}

HostLinkTime HostLinkCore::deadline() const
{
    if (!d->lineIsUp || d->closed) {
        return HostLinkTime::max();
    }
    if (d->greeting) {
        return d->helloDeadline;
    }
    return std::min({d->lastSent + kKeepAlive, d->lastReceived + kSilence, d->sender.deadline(),
                     d->receiver.ackDeadline()});
}

bool HostLinkCore::send(const ByteArray& message, HostLinkTime now)
{
    const bool taken = d->queue(message, now);
    if (taken) {
        ++d->counters.messagesSent;
        HostLinkTrace::message(HostLinkTrace::Direction::Out, message);
    } else {
        ++d->counters.messagesRefused;
        HostLinkTrace::refused(message);
    }
    return taken;
}

bool HostLinkCore::writable(MessageClass messageClass, std::size_t size) const
{
    const std::size_t reserve = messageClass == MessageClass::Bulk ? d->settings.bulkReserve : 0;
    return d->mayQueue(messageClass, size) && d->sender.fits(messageClass, size + reserve);
}

std::size_t HostLinkCore::queuedBytes(MessageClass messageClass) const
{
    return d->sender.queuedBytes(messageClass);
}

bool HostLinkCore::take(ByteArray& message)
{
    const bool taken = d->receiver.take(message);
    if (taken) {
        HostLinkTrace::message(HostLinkTrace::Direction::In, message);
    }
    return taken;
}

void HostLinkCore::handled()
{
    d->receiver.handled();
}

HostLinkCore::Session HostLinkCore::session() const
{
    return d->session;
}

std::uint64_t HostLinkCore::sessionNumber() const
{
    return d->sessions;
}

bool HostLinkCore::allAcknowledged(MessageClass messageClass) const
{
    return d->sender.allAcknowledged(messageClass);
}

void HostLinkCore::goodbye(HostLinkTime)
{
    if (d->closed) {
        return;
    }
    d->goodbyeDue = d->peer != 0;
    d->endSession("goodbye");
    d->counters.messagesDiscarded += d->sender.endSession();
    d->closed = true;
}

bool HostLinkCore::refused() const
{
    return d->refused;
}

HostLinkCounters HostLinkCore::counters() const
{
    Counters counters = d->counters;
    counters.messagesReceived = d->receiver.messages();
    counters.messagesBroken = d->receiver.brokenMessages();
    counters.sessions = d->sessions;
    counters.stateQueued = d->sender.queuedBytes(MessageClass::State);
    counters.bulkQueued = d->sender.queuedBytes(MessageClass::Bulk);
    counters.framesUnacknowledged = d->sender.unacknowledged();
    counters.messagesUnhandled = d->receiver.unhandledMessages();
    using Microseconds = std::chrono::duration<std::uint64_t, std::micro>;
    counters.roundTrip = std::chrono::duration_cast<Microseconds>(d->sender.roundTrip()).count();
    return counters;
}

const ByteArray& HostLinkCore::refusalFrame()
{
    static const ByteArray frame = [] {
        HostLinkFrameEncoder encoder;
        HostLinkFrame refusal;
        refusal.control = HostLinkControl::Refusal;
        encoder.encode(refusal, true);
        return ByteArray(encoder.data(), encoder.data() + encoder.size());
    }();
    return frame;
}

bool HostLinkCore::Private::mayQueue(MessageClass messageClass, std::size_t size) const
{
    return !closed && session != Session::Ended && !receiver.answersFormerPeer() && size > 0
           && sender.canHold(messageClass, size);
}

bool HostLinkCore::Private::queue(const ByteArray& message, HostLinkTime now)
{
    const MessageClass messageClass = ::messageClass(HostLinkMessage::messageId(message));
    if (!mayQueue(messageClass, message.size())) {
        sayIfTooLong(messageClass, message);
        return false;
    }
    if (!sender.fits(messageClass, message.size())) {
        if (messageClass == MessageClass::State && session == Session::Established) {
            endForGood("the queue of state messages is full", now);
        }
        return false;
    }
    sender.queue(messageClass, message);
    return true;
}

/// Nothing else would tell why the peer waits in vain.
void HostLinkCore::Private::sayIfTooLong(MessageClass messageClass, const ByteArray& message) const
{
    if (closed || session == Session::Ended || sender.canHold(messageClass, message.size())) {
        return;
    }
    HostLinkLog::write(HostLinkLog::Level::Warning,
                       HostLinkPrinter::printMessageId(HostLinkMessage::messageId(message)) + " of "
                           + std::to_string(message.size())
                           + " bytes is longer than the link carries, not sent");
}

/// Begins the handshake: from here on nothing but hellos is exchanged, until the peer has answered.
void HostLinkCore::Private::greet(HostLinkTime now)
{
    ++counters.greetings;
    greeting = true;
    helloDue = true;
    helloInterval = kFirstHello;
    helloDeadline = now;
}

void HostLinkCore::Private::checkTimers(HostLinkTime now)
{
    if (greeting) {
        helloDue = helloDue || now >= helloDeadline;
        return;
    }
    if (now - lastReceived >= kSilence) {
        sayDown(silenceSaid, "the peer is silent");
        greet(now);
        return;
    }
    if (now < sender.deadline()) {
        return;
    }
    ++counters.timeouts;
    if (!sender.expired()) {
        sayDown(noProgressSaid, "the peer acknowledges nothing");
        greet(now);
    }
}

/// Once for a trouble, however often the peer is greeted in it.
void HostLinkCore::Private::sayDown(bool& said, const char* why)
{
    if (!std::exchange(said, true)) {
        HostLinkLog::write(HostLinkLog::Level::Warning, std::string("the link is down, ") + why);
    }
}

void HostLinkCore::Private::receiveFrame(const HostLinkFrame& frame, HostLinkTime now)
{
    ++counters.framesReceived;
    switch (frame.control) {
    case HostLinkControl::Hello: receiveHello(frame, now); return;
    case HostLinkControl::Goodbye: receiveGoodbye(frame, now); return;
    case HostLinkControl::Refusal: receiveRefusal(); return;
    default: break;
    }
    const bool sequenced = (frame.control & HostLinkControl::Sequenced) != 0;
    const bool known =
        sequenced || frame.control == HostLinkControl::Ack || frame.control == HostLinkControl::Nak;
    if (greeting || !known) {
        ++counters.framesIgnored;
        return;
    }
    lastReceived = now;
    noProgressSaid = !sender.acknowledged(frame.acknowledgement, now) && noProgressSaid;
    if (sequenced) {
        receiveSequenced(frame, now);
        return;
    }
    receiver.expectNext(frame.sequence, now);
    if (frame.control == HostLinkControl::Nak) {
        sender.askedFor(frame.acknowledgement);
    }
}

void HostLinkCore::Private::receiveSequenced(const HostLinkFrame& frame, HostLinkTime now)
{
    const HostLinkReceiver::Verdict verdict = receiver.accept(frame, now);
    if (verdict == HostLinkReceiver::Verdict::Accepted) {
        receiveCredit(frame);
        return;
    }
    const bool isDuplicate = verdict == HostLinkReceiver::Verdict::Repeated;
    ++(isDuplicate ? counters.framesDuplicate : counters.framesIgnored);
    if (verdict == HostLinkReceiver::Verdict::Breach) {
        // It would be repeated for ever: the two ends count differently, and a new session mends that.
        endForGood("the peer sent beyond its credit or what is not known here", now);
    }
}

void HostLinkCore::Private::receiveCredit(const HostLinkFrame& frame)
{
    if (frame.control != HostLinkControl::Grant) {
        constexpr auto kQuantum = static_cast<std::uint32_t>(HostLinkReceiveWindow::kQuantum);
        sender.grant(MessageClass::State, frame.control & HostLinkControl::CreditState ? kQuantum : 0);
        sender.grant(MessageClass::Bulk, frame.control & HostLinkControl::CreditBulk ? kQuantum : 0);
        return;
    }
    if (frame.size >= 8) {
        sender.grant(MessageClass::State, readBigEndian<std::uint32_t>(frame.payload));
        sender.grant(MessageClass::Bulk, readBigEndian<std::uint32_t>(frame.payload + 4));
    }
}

void HostLinkCore::Private::receiveHello(const HostLinkFrame& frame, HostLinkTime now)
{
    HostLinkHello hello;
    if (!hello.read(frame)) {
        ++counters.framesIgnored;
        if (!std::exchange(versionWarned, true)) {
            HostLinkLog::write(HostLinkLog::Level::Warning,
                               "the peer speaks version " + std::to_string(HostLinkHello::version(frame))
                                   + " of the link, which is not known here");
        }
        return;
    }
    const bool isLate = hello.instance == superseded && !greeting;
    const bool isEcho = hello.instance == instance;
    if (isLate || isEcho) {
        ++counters.framesIgnored;
        return;
    }
    if (hello.instance != peer) {
        learnPeer(hello.instance, now);
    }
    lastReceived = now;
    if (hello.peer != instance) {
        helloDue = true;
        return;
    }
    if (hello.settled && !greeting) {
        return;
    }
    if (!joinSession(hello)) {
        endForGood("the peer remembers another one", now);
        return;
    }
    greeting = false;
    if (std::exchange(silenceSaid, false)) {
        HostLinkLog::write(HostLinkLog::Level::Info, "the link is up again");
    }
    lastSent = now;
    helloDue = !hello.settled;
}

/// Another instance than before: whatever was between this end and the former one is over.
void HostLinkCore::Private::learnPeer(std::uint64_t newInstance, HostLinkTime now)
{
    endSession("the peer is a new one");
    superseded = peer;
    peer = newInstance;
    joined = false;
    receiver.beginSession();
    granted[0] = static_cast<std::uint32_t>(receiver.credit(MessageClass::State));
    granted[1] = static_cast<std::uint32_t>(receiver.credit(MessageClass::Bulk));
    if (!greeting) {
        greet(now);
    }
}

/// Begins or resumes the session with the peer. False when what the two remember does not fit together.
bool HostLinkCore::Private::joinSession(const HostLinkHello& hello)
{
    if (joined) {
        HostLinkTrace::session("resumed");
        receiver.resume();
        return sender.resume(hello.received);
    }
    if (hello.received != 0) {
        return false;
    }
    const std::size_t dropped = sender.beginSession(hello.credit, hello.largest);
    if (dropped > 0) {
        counters.messagesDiscarded += dropped;
        HostLinkLog::write(HostLinkLog::Level::Warning,
                           std::to_string(dropped)
                               + " messages are longer than the peer can hold, discarded");
    }
    joined = true;
    noProgressSaid = false;
    session = Session::Established;
    ++sessions;
    HostLinkTrace::session("begins");
    return true;
}

void HostLinkCore::Private::endSession(const char* why, bool forGood)
{
    if (session != Session::Established) {
        return;
    }
    HostLinkTrace::session("ended:", why);
    session = Session::Ended;
    joined = false;
    receiver.endSession();
    const std::size_t dropped = sender.endSession();
    counters.messagesDiscarded += dropped;
    if (dropped > 0 || forGood) {
        HostLinkLog::write(HostLinkLog::Level::Warning, endText(why, dropped));
    }
}

/// Ends the session from this side, so that both sides see that messages may be missing.
void HostLinkCore::Private::endForGood(const char* why, HostLinkTime now)
{
    endSession(why, true);
    instance = drawInstance();
    peer = 0;
    joined = false;
    greet(now);
}

void HostLinkCore::Private::receiveGoodbye(const HostLinkFrame& frame, HostLinkTime now)
{
    if (frame.size < kGoodbyeSize || peer == 0 || readBigEndian<std::uint64_t>(frame.payload) != peer) {
        ++counters.framesIgnored;
        return;
    }
    if (!greeting) {
        sender.acknowledged(frame.acknowledgement, now);
    }
    endSession("the peer said goodbye");
    peer = 0;
    joined = false;
    greet(now);
    helloDue = false; // nobody is there to hear it; who comes next greets first, or hears the next one
    helloInterval = kLastHello;
    helloDeadline = now + kLastHello;
}

void HostLinkCore::Private::receiveRefusal()
{
    if (greeting) {
        refused = true;
        ++counters.refusals;
    }
}

HostLinkCore::Bytes HostLinkCore::Private::transmitHello(HostLinkTime now)
{
    helloDue = false;
    if (greeting) {
        helloDeadline = now + helloInterval;
        helloInterval = std::min(2 * helloInterval, kLastHello);
    }
    HostLinkHello hello;
    hello.settled = !greeting;
    hello.instance = instance;
    hello.peer = peer;
    hello.received = joined ? receiver.received() : 0;
    for (std::size_t c = 0; c < 2; ++c) {
        hello.credit[c] = granted[c];
        hello.largest[c] = static_cast<std::uint32_t>(settings.creditBytes[c]);
    }
    const HostLinkHello::Payload payload = hello.payload();
    HostLinkFrame frame;
    frame.control = HostLinkControl::Hello;
    frame.payload = payload.data();
    frame.size = payload.size();
    return transmitFrame(frame, true, now);
}

HostLinkCore::Bytes HostLinkCore::Private::transmitGoodbye(HostLinkTime now)
{
    goodbyeDue = false;
    std::uint8_t payload[kGoodbyeSize];
    writeBigEndian(payload, instance);
    HostLinkFrame frame;
    frame.control = HostLinkControl::Goodbye;
    frame.payload = payload;
    frame.size = sizeof payload;
    return transmitFrame(frame, true, now);
}

HostLinkCore::Bytes HostLinkCore::Private::transmitNumbered(HostLinkTime now)
{
    if (sender.repeating()) {
        ++counters.framesRepeated;
        return transmitFrame(sender.repeat(now), true, now);
    }
    if (!sender.canNumber()) {
        return {nullptr, 0};
    }
    if (settings.bulkReserve > 0) {
        receiver.holdCredit(MessageClass::Bulk, !sender.fits(MessageClass::Bulk, settings.bulkReserve));
    }
    if (receiver.grantDue()) {
        std::uint8_t payload[8];
        writeBigEndian(payload, receiver.takeGrant(MessageClass::State));
        writeBigEndian(payload + 4, receiver.takeGrant(MessageClass::Bulk));
        return transmitFrame(sender.numberGrant(payload, now), false, now);
    }
    if (sender.hasSegment()) {
        return transmitFrame(sender.nextSegment(receiver.takeCreditBits(), now), false, now);
    }
    return {nullptr, 0};
}

HostLinkCore::Bytes HostLinkCore::Private::transmitAcknowledgement(std::uint8_t control, bool zeroFirst,
                                                                   HostLinkTime now)
{
    counters.resyncs += control == HostLinkControl::Nak ? 1 : 0;
    HostLinkFrame frame;
    frame.control = control;
    frame.sequence = sender.sequence();
    return transmitFrame(frame, zeroFirst, now);
}

HostLinkCore::Bytes HostLinkCore::Private::transmitFrame(HostLinkFrame frame, bool zeroFirst,
                                                         HostLinkTime now)
{
    if (!greeting && frame.control != HostLinkControl::Hello) {
        frame.acknowledgement = receiver.acknowledgement();
        receiver.acknowledgementSent(frame.control == HostLinkControl::Nak, now);
    }
    const bool again = zeroFirst && (frame.control & HostLinkControl::Sequenced) != 0;
    HostLinkTrace::frame(HostLinkTrace::Direction::Out, frame, again);
    ++counters.framesSent;
    lastSent = now;
    encoder.encode(frame, zeroFirst);
    counters.bytesSent += encoder.size();
    return {encoder.data(), encoder.size()};
}
