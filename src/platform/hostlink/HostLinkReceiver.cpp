#include "platform/hostlink/HostLinkReceiver.h"

#include <utility>

#include "platform/hostlink/HostLinkSender.h"

namespace
{
// A file comes in messages of up to 32 KiB, one like the other; longer ones' memory is given back.
constexpr std::size_t kSpareBytes = 64 * 1024;

MessageClass classOf(const HostLinkFrame& frame)
{
    return frame.control & HostLinkControl::Bulk ? MessageClass::Bulk : MessageClass::State;
}

/// Removes the first `count`, which are done with, once they are more than the others: so it costs little.
template <typename Element>
void forgetFirst(std::vector<Element>& elements, std::size_t* count)
{
    if (*count > elements.size() / 2) {
        elements.erase(elements.begin(), elements.begin() + static_cast<std::ptrdiff_t>(*count));
        *count = 0;
    }
}
} // namespace

HostLinkReceiver::HostLinkReceiver(const std::size_t (&windowBytes)[2], HostLinkDuration pollTime)
    : m_windows{HostLinkReceiveWindow(windowBytes[0]), HostLinkReceiveWindow(windowBytes[1])},
      m_nakTimer(pollTime)
{
}

void HostLinkReceiver::beginSession()
{
    m_expected = 0;
    resume();
    m_windows[0].beginSession();
    m_windows[1].beginSession();
}

void HostLinkReceiver::resume()
{
    m_acknowledgedTo = m_expected;
    m_ackDeadline = HostLinkTime::max();
    endGap();
}

void HostLinkReceiver::endGap()
{
    m_nakDue = false;
    m_asked = false;
    m_naks = 0;
    m_nakTimer.stop();
    m_nakTimer.progress();
}

HostLinkReceiver::Verdict HostLinkReceiver::accept(const HostLinkFrame& frame, HostLinkTime now)
{
    const Verdict verdict = judge(frame, now);
    if (verdict == Verdict::Repeated) {
        m_ackDeadline = HostLinkTime::min(); // the acknowledgement was lost or late
    }
    if (verdict != Verdict::Accepted) {
        return verdict;
    }
    ++m_expected;
    noteRepair(now);
    endGap();
    if (m_expected - m_acknowledgedTo >= kAckEvery) {
        m_ackDeadline = HostLinkTime::min();
    } else if (m_ackDeadline == HostLinkTime::max()) {
        m_ackDeadline = now + kAckDelay;
    }
    if (frame.control != HostLinkControl::Grant) {
        deliver(frame);
    }
    return verdict;
}

/// How long it takes from a nak to the frame. Where that was asked for more than once, it was perhaps too
/// early; so the first time counts all the same. What comes late was not missing: there was garbage on an
/// idle line.
void HostLinkReceiver::noteRepair(HostLinkTime now)
{
    const bool isFirst = m_nakTimer.smoothed() == HostLinkDuration::zero();
    const bool isSure = m_naks == 1 || (m_naks > 1 && isFirst);
    if (isSure && now - m_nakAt <= HostLinkRetransmitTimer::kCeiling) {
        m_nakTimer.sample(now - m_nakAt);
    }
}

HostLinkReceiver::Verdict HostLinkReceiver::judge(const HostLinkFrame& frame, HostLinkTime now)
{
    const auto ahead = static_cast<std::uint8_t>(frame.sequence - acknowledgement());
    if (ahead >= 256 - HostLinkSender::kMaxInFlight) {
        return Verdict::Repeated;
    }
    if (ahead >= HostLinkSender::kMaxInFlight) {
        return Verdict::Ignored;
    }
    if (ahead > 0) {
        // Frames come in the order of transmission: one that lies no further ahead than an earlier one
        // shows that the peer went back already and that the missing frame was lost again.
        if (mayAsk(now) || ahead <= m_reach) {
            askAgain(ahead);
        }
        m_reach = ahead;
        return Verdict::Gap;
    }
    constexpr std::uint8_t kUnknownBits = 0x03;
    const bool isData = (frame.control & kUnknownBits) == 0 && frame.size <= window(classOf(frame)).credit();
    return isData || frame.control == HostLinkControl::Grant ? Verdict::Accepted : Verdict::Breach;
}

void HostLinkReceiver::askAgain(std::uint32_t reach)
{
    m_nakDue = true;
    m_asked = true;
    m_reach = reach;
}

void HostLinkReceiver::expectNext(std::uint8_t sequence, HostLinkTime now)
{
    const auto ahead = static_cast<std::uint8_t>(sequence - acknowledgement());
    if (ahead > 0 && ahead <= HostLinkSender::kMaxInFlight && mayAsk(now)) {
        askAgain(ahead - 1U);
    }
}

void HostLinkReceiver::damaged(HostLinkTime now)
{
    if (mayAsk(now)) {
        askAgain(0);
    }
}

void HostLinkReceiver::deliver(const HostLinkFrame& frame)
{
    ByteArray message = std::exchange(m_spare, {});
    bool dropped = false;
    const MessageClass messageClass = classOf(frame);
    const bool complete = window(messageClass)
                              .add(frame.payload, frame.size, (frame.control & HostLinkControl::First) != 0,
                                   (frame.control & HostLinkControl::Last) != 0, message, &dropped);
    m_brokenMessages += dropped ? 1 : 0;
    if (!complete) {
        m_spare.swap(message);
        return;
    }
    m_unhandled.push_back({messageClass, static_cast<std::uint32_t>(message.size())});
    m_inbox.push_back(std::move(message));
    ++m_messages;
}

bool HostLinkReceiver::take(ByteArray& message)
{
    if (waiting() == 0) {
        return false;
    }
    ByteArray& first = m_inbox[m_taken++];
    message.swap(first);
    if (first.capacity() > m_spare.capacity() && first.capacity() <= kSpareBytes) {
        m_spare.swap(first);
        m_spare.clear();
    }
    forgetFirst(m_inbox, &m_taken);
    return true;
}

void HostLinkReceiver::handled()
{
    if (unhandledMessages() <= waiting()) {
        return;
    }
    const Unhandled& message = m_unhandled[m_handled++];
    window(message.messageClass).handled(message.size);
    forgetFirst(m_unhandled, &m_handled);
    m_formerMessages -= m_formerMessages > 0 ? 1 : 0;
}

void HostLinkReceiver::acknowledgementSent(bool nak, HostLinkTime now)
{
    if (nak) {
        if (m_naks > 0) {
            m_nakTimer.expire();
        }
        m_nakAt = m_naks++ == 0 ? now : m_nakAt;
        m_nakTimer.start(now);
    }
    m_acknowledgedTo = m_expected;
    m_ackDeadline = HostLinkTime::max();
    m_nakDue = m_nakDue && !nak;
}

std::uint8_t HostLinkReceiver::takeCreditBits()
{
    return static_cast<std::uint8_t>((m_windows[0].takeQuantum() ? HostLinkControl::CreditState : 0)
                                     | (m_windows[1].takeQuantum() ? HostLinkControl::CreditBulk : 0));
}
