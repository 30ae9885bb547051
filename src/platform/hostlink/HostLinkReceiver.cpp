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
} // namespace

HostLinkReceiver::HostLinkReceiver(const std::size_t (&windowBytes)[2])
    : m_windows{HostLinkReceiveWindow(windowBytes[0]), HostLinkReceiveWindow(windowBytes[1])}
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
    m_nakDue = false;
    m_asked = false;
}

HostLinkReceiver::Verdict HostLinkReceiver::accept(const HostLinkFrame& frame, HostLinkTime now)
{
    const Verdict verdict = judge(frame);
    if (verdict == Verdict::Repeated) {
        m_ackDeadline = HostLinkTime::min(); // the acknowledgement was lost or late
    }
    if (verdict != Verdict::Accepted) {
        return verdict;
    }
    ++m_expected;
    m_asked = false;
    m_nakDue = false;
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

HostLinkReceiver::Verdict HostLinkReceiver::judge(const HostLinkFrame& frame)
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
        if (!m_asked || ahead <= m_reach) {
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

void HostLinkReceiver::expectNext(std::uint8_t sequence)
{
    const auto ahead = static_cast<std::uint8_t>(sequence - acknowledgement());
    if (ahead > 0 && ahead <= HostLinkSender::kMaxInFlight && !m_asked) {
        askAgain(ahead - 1U);
    }
}

void HostLinkReceiver::damaged()
{
    if (!m_asked) {
        askAgain(0);
    }
}

void HostLinkReceiver::deliver(const HostLinkFrame& frame)
{
    ByteArray message = std::exchange(m_spare, {});
    bool dropped = false;
    const bool complete = window(classOf(frame))
                              .add(frame.payload, frame.size, (frame.control & HostLinkControl::First) != 0,
                                   (frame.control & HostLinkControl::Last) != 0, message, &dropped);
    m_brokenMessages += dropped ? 1 : 0;
    if (!complete) {
        m_spare.swap(message);
        return;
    }
    m_inbox.push_back(std::move(message));
    ++m_messages;
    ++m_unhandledMessages;
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
    if (m_taken > m_inbox.size() / 2) {
        m_inbox.erase(m_inbox.begin(), m_inbox.begin() + static_cast<std::ptrdiff_t>(m_taken));
        m_taken = 0;
    }
    return true;
}

void HostLinkReceiver::handled(MessageClass messageClass, std::size_t size)
{
    window(messageClass).handled(size);
    if (m_unhandledMessages > waiting()) {
        --m_unhandledMessages;
        m_formerMessages -= m_formerMessages > 0 ? 1 : 0;
    }
}

void HostLinkReceiver::acknowledgementSent(bool nak)
{
    m_acknowledgedTo = m_expected;
    m_ackDeadline = HostLinkTime::max();
    m_nakDue = m_nakDue && !nak;
}

std::uint8_t HostLinkReceiver::takeCreditBits()
{
    return static_cast<std::uint8_t>((m_windows[0].takeQuantum() ? HostLinkControl::CreditState : 0)
                                     | (m_windows[1].takeQuantum() ? HostLinkControl::CreditBulk : 0));
}
