#include "platform/hostlink/HostLinkSender.h"

#include <algorithm>
#include <cstring>

namespace
{
MessageClass classOf(std::uint8_t control)
{
    return control & HostLinkControl::Bulk ? MessageClass::Bulk : MessageClass::State;
}
} // namespace

// A segment is filled when it gets its number; to fill all of them takes memory that a quiet link never
// needs. NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init)
HostLinkSender::HostLinkSender(const std::size_t (&queueBytes)[2], HostLinkDuration pollTime)
    : m_queues{HostLinkSendQueue(queueBytes[0]), HostLinkSendQueue(queueBytes[1])}, m_timer(pollTime)
{
}

bool HostLinkSender::fits(MessageClass messageClass, std::size_t size) const
{
    return m_queues[index(messageClass)].fits(size);
}

bool HostLinkSender::canHold(MessageClass messageClass, std::size_t size) const
{
    return size <= m_largest[index(messageClass)] && m_queues[index(messageClass)].canHold(size);
}

std::size_t HostLinkSender::beginSession(const std::uint32_t (&credit)[2], const std::uint32_t (&largest)[2])
{
    restartNumbers();
    std::size_t dropped = 0;
    for (std::size_t c = 0; c < 2; ++c) {
        m_credit[c] = credit[c];
        m_largest[c] = largest[c];
        dropped += m_queues[c].dropLongerThan(largest[c]);
    }
    return dropped;
}

std::size_t HostLinkSender::endSession()
{
    std::size_t dropped = m_queues[0].messages() + m_queues[1].messages();
    for (std::uint32_t n = m_acknowledged; n != m_next; ++n) {
        const std::uint8_t control = segment(n).control;
        dropped += control != HostLinkControl::Grant && (control & HostLinkControl::Last) ? 1 : 0;
    }
    m_queues[0].clear();
    m_queues[1].clear();
    restartNumbers();
    return dropped;
}

void HostLinkSender::restartNumbers()
{
    m_acknowledged = m_cursor = m_next = 0;
    m_unacknowledged[0] = m_unacknowledged[1] = 0;
    m_stateRun = 0;
    m_timing = false;
    m_timer.stop();
    m_timer.progress();
}

bool HostLinkSender::resume(std::uint32_t received)
{
    if (received - m_acknowledged > m_next - m_acknowledged) {
        return false;
    }
    release(received - m_acknowledged);
    goBack();
    m_timer.progress();
    return true;
}

bool HostLinkSender::acknowledged(std::uint8_t nextExpected, HostLinkTime now)
{
    const std::uint8_t count =
        static_cast<std::uint8_t>(nextExpected - static_cast<std::uint8_t>(m_acknowledged));
    if (count == 0 || count > m_next - m_acknowledged) {
        return false;
    }
    if (m_timing && m_timed - m_acknowledged < count) {
        m_timing = false;
        m_timer.sample(now - m_timedAt);
    }
    release(count);
    m_timer.progress();
    if (m_acknowledged == m_cursor) {
        m_timer.stop();
    } else {
        startTimer(now);
    }
    return true;
}

void HostLinkSender::startTimer(HostLinkTime now)
{
    m_timer.start(now);
    m_heardBytes = 0;
}

void HostLinkSender::lineFree(HostLinkTime now)
{
    if (m_onWire) {
        return;
    }
    m_onWire = true;
    if (m_timing && m_timed + 1 == m_cursor) {
        m_timedAt = now;
    }
    if (m_acknowledged != m_cursor) {
        startTimer(now);
    }
}

void HostLinkSender::heard(std::size_t bytes, HostLinkTime now)
{
    m_heardBytes += bytes;
    if (m_acknowledged != m_cursor && m_heardBytes <= 2 * HostLinkFrame::kMaxEncoded) {
        m_timer.start(now);
    }
}

void HostLinkSender::release(std::uint32_t count)
{
    for (; count > 0; --count, ++m_acknowledged) {
        const std::uint8_t control = segment(m_acknowledged).control;
        if (control != HostLinkControl::Grant) {
            --m_unacknowledged[index(classOf(control))];
        }
        if (m_cursor == m_acknowledged) {
            ++m_cursor;
        }
    }
}

void HostLinkSender::askedFor(std::uint8_t sequence)
{
    if (sequence == static_cast<std::uint8_t>(m_acknowledged)) {
        goBack();
    }
}

void HostLinkSender::goBack()
{
    m_cursor = m_acknowledged;
    m_timing = false;
    m_timer.stop();
}

bool HostLinkSender::expired()
{
    if (!m_timer.expire()) {
        return false;
    }
    goBack();
    return true;
}

HostLinkFrame HostLinkSender::repeat(HostLinkTime now)
{
    startTimer(now);
    m_onWire = false;
    return frameOf(m_cursor++);
}

HostLinkFrame HostLinkSender::nextSegment(std::uint8_t credit, HostLinkTime now)
{
    const MessageClass messageClass = pickClass();
    HostLinkSendQueue& messages = queueOf(messageClass);
    Segment& next = segment(m_next);
    const std::size_t size = segmentSize(messageClass);
    const bool first = messages.firstLeft() == messages.firstSize();
    const bool last = messages.firstLeft() == size;
    next.control =
        static_cast<std::uint8_t>(HostLinkControl::Sequenced | credit | (first ? HostLinkControl::First : 0)
                                  | (last ? HostLinkControl::Last : 0)
                                  | (messageClass == MessageClass::Bulk ? HostLinkControl::Bulk : 0));
    next.size = static_cast<std::uint16_t>(size);
    messages.takeFirst(next.payload.data(), size);
    m_credit[index(messageClass)] -= size;
    ++m_unacknowledged[index(messageClass)];
    return number(now);
}

HostLinkFrame HostLinkSender::numberGrant(const std::uint8_t (&payload)[8], HostLinkTime now)
{
    Segment& next = segment(m_next);
    next.control = HostLinkControl::Grant;
    next.size = sizeof payload;
    std::memcpy(next.payload.data(), payload, sizeof payload);
    return number(now);
}

HostLinkFrame HostLinkSender::number(HostLinkTime now)
{
    if (!m_timing) {
        m_timing = true;
        m_timed = m_next;
        m_timedAt = now;
    }
    startTimer(now);
    m_onWire = false;
    ++m_cursor;
    return frameOf(m_next++);
}

HostLinkFrame HostLinkSender::frameOf(std::uint32_t number)
{
    const Segment& found = segment(number);
    HostLinkFrame frame;
    frame.control = found.control;
    frame.sequence = static_cast<std::uint8_t>(number);
    frame.payload = found.payload.data();
    frame.size = found.size;
    return frame;
}

std::size_t HostLinkSender::segmentSize(MessageClass messageClass) const
{
    return std::min(m_queues[index(messageClass)].firstLeft(), HostLinkFrame::kMaxPayload);
}

bool HostLinkSender::canSend(MessageClass messageClass) const
{
    return !m_queues[index(messageClass)].empty()
           && segmentSize(messageClass) <= m_credit[index(messageClass)];
}

/// State goes first, but a bulk segment that could go is not kept waiting for ever.
MessageClass HostLinkSender::pickClass()
{
    const bool bulk = canSend(MessageClass::Bulk);
    if (!bulk || (canSend(MessageClass::State) && m_stateRun < kStateRun)) {
        m_stateRun = bulk ? m_stateRun + 1 : 0;
        return MessageClass::State;
    }
    m_stateRun = 0;
    return MessageClass::Bulk;
}

bool HostLinkSender::allAcknowledged(MessageClass messageClass) const
{
    return m_queues[index(messageClass)].empty() && m_unacknowledged[index(messageClass)] == 0;
}
