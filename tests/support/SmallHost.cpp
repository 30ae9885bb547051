#include "support/SmallHost.h"

#include <string.h>

namespace
{

constexpr std::uint8_t kAck = 0x01;
constexpr std::uint8_t kNak = 0x02;
constexpr std::uint8_t kHello = 0x03;
constexpr std::uint8_t kGoodbye = 0x04;
constexpr std::uint8_t kNumbered = 0x80;
constexpr std::uint8_t kGrant = 0x81;
constexpr std::uint8_t kOfBulk = 0x40;
constexpr std::uint8_t kFirst = 0x20;
constexpr std::uint8_t kLast = 0x10;
constexpr std::uint8_t kGrantsState = 0x08;
constexpr std::uint8_t kUnknown = 0x03;

constexpr std::size_t kSegment = 501;
constexpr std::size_t kHelloSize = 38;
constexpr std::size_t kLowCredit = SmallHost::kLongest / 2; // above, there is credit for any segment

bool isDue(std::uint32_t at, std::uint32_t now)
{
    return static_cast<std::int32_t>(now - at) >= 0;
}

std::uint32_t addToCrc(std::uint32_t crc, std::uint8_t byte)
{
    crc ^= byte;
    for (int bit = 0; bit < 8; ++bit) {
        crc = (crc >> 1) ^ (crc & 1 ? 0xEDB88320u : 0);
    }
    return crc;
}

std::uint64_t number(const std::uint8_t* bytes, int size)
{
    std::uint64_t result = 0;
    for (int i = 0; i < size; ++i) {
        result = result << 8 | bytes[i];
    }
    return result;
}

void put(std::uint8_t* to, std::uint64_t number, int size)
{
    for (int i = size; i-- > 0; number >>= 8) {
        to[i] = static_cast<std::uint8_t>(number);
    }
}

/// Encodes a frame byte by byte.
class Writer
{
public:
    Writer(std::uint8_t* to, bool zeroFirst) : m_to(to)
    {
        if (zeroFirst) {
            m_to[m_size++] = 0;
        }
        m_codeAt = m_size++;
    }

    void add(std::uint8_t byte)
    {
        m_crc = addToCrc(m_crc, byte);
        encode(byte);
    }

    std::size_t finish()
    {
        std::uint8_t crc[4];
        put(crc, ~m_crc, 4);
        for (const std::uint8_t byte : crc) {
            encode(byte);
        }
        m_to[m_codeAt] = m_code;
        m_to[m_size++] = 0;
        return m_size;
    }

private:
    void encode(std::uint8_t byte)
    {
        if (m_code == 255) {
            beginPiece();
        }
        if (byte == 0) {
            beginPiece();
        } else {
            m_to[m_size++] = byte;
            ++m_code;
        }
    }

    void beginPiece()
    {
        m_to[m_codeAt] = m_code;
        m_codeAt = m_size++;
        m_code = 1;
    }

    std::uint8_t* m_to;
    std::size_t m_size = 0;
    std::size_t m_codeAt;
    std::uint8_t m_code = 1;
    std::uint32_t m_crc = 0xFFFFFFFFu;
};

} // namespace

SmallHost::SmallHost(std::uint64_t (*drawInstance)(), Handler handler, void* context)
    : m_drawInstance(drawInstance), m_handler(handler), m_context(context), m_instance(drawInstance())
{
}

void SmallHost::lineUp(std::uint32_t now)
{
    m_superseded = 0;
    m_code = 0;
    m_left = 0;
    m_frameSize = 0;
    m_frameBad = false;
    greet(now);
}

void SmallHost::greet(std::uint32_t now)
{
    m_greeting = true;
    m_helloDue = true;
    m_helloAt = now;
    m_helloPause = 200;
}

/// Nothing of the former session is kept, and no number of it means anything.
void SmallHost::beginNumbers()
{
    m_joined = false;
    m_received = 0;
    m_unacknowledged = 0;
    m_acknowledgeNow = false;
    m_handled = 0;
    m_collecting = false;
    m_sent = 0;
    m_control = 0;
    m_outSize = 0;
}

void SmallHost::endForGood(std::uint32_t now)
{
    m_instance = m_drawInstance();
    m_peer = 0;
    beginNumbers();
    greet(now);
}

bool SmallHost::send(const std::uint8_t* message, std::size_t size)
{
    if (!m_joined || m_outSize > 0 || size == 0 || size > kLongest || size > m_peerLongest) {
        return false;
    }
    memcpy(m_out, message, size);
    m_outSize = size;
    m_outAt = 0;
    return true;
}

void SmallHost::receive(const std::uint8_t* bytes, std::size_t size, std::uint32_t now)
{
    for (std::size_t i = 0; i < size; ++i) {
        receiveByte(bytes[i], now);
    }
}

void SmallHost::receiveByte(std::uint8_t byte, std::uint32_t now)
{
    const auto keep = [this](std::uint8_t decoded) {
        m_frameBad = m_frameBad || m_frameSize == sizeof m_frame;
        if (!m_frameBad) {
            m_frame[m_frameSize++] = decoded;
        }
    };
    if (byte == 0) {
        if (m_code != 0 && m_left == 0 && !m_frameBad && m_frameSize >= 7) {
            receiveFrame(now);
        }
        m_code = 0;
        m_left = 0;
        m_frameSize = 0;
        m_frameBad = false;
    } else if (m_left > 0) {
        keep(byte);
        --m_left;
    } else {
        if (m_code != 0 && m_code != 255) {
            keep(0);
        }
        m_code = byte;
        m_left = static_cast<std::uint8_t>(byte - 1);
    }
}

void SmallHost::receiveFrame(std::uint32_t now)
{
    const std::size_t size = m_frameSize - 4;
    std::uint32_t crc = 0xFFFFFFFFu;
    for (std::size_t i = 0; i < size; ++i) {
        crc = addToCrc(crc, m_frame[i]);
    }
    if (number(m_frame + size, 4) != static_cast<std::uint32_t>(~crc)) {
        return;
    }
    const std::uint8_t control = m_frame[0];
    const std::uint8_t* payload = m_frame + 3;
    if (control == kHello) {
        receiveHello(payload, size - 3, now);
        return;
    }
    if (control == kGoodbye) {
        if (size >= 11 && m_peer != 0 && number(payload, 8) == m_peer) {
            m_peer = 0;
            beginNumbers();
            greet(now);
        }
        return;
    }
    const bool isKnown = (control & kNumbered) != 0 || control == kAck || control == kNak;
    if (m_greeting || !isKnown) {
        return;
    }
    m_heardAt = now;
    if (m_control != 0 && m_frame[2] == static_cast<std::uint8_t>(m_sent + 1)) {
        acknowledged();
    }
    if (control == kNak && m_control != 0) {
        m_repeat = true;
    }
    if ((control & kNumbered) != 0) {
        receiveNumbered(size, now);
    }
}

void SmallHost::receiveHello(const std::uint8_t* payload, std::size_t size, std::uint32_t now)
{
    if (size < kHelloSize || payload[0] != 1) {
        return;
    }
    const bool isSettled = (payload[1] & 1) != 0;
    const std::uint64_t instance = number(payload + 2, 8);
    const auto received = static_cast<std::uint32_t>(number(payload + 18, 4));
    if (instance == m_instance || (instance == m_superseded && !m_greeting)) {
        return;
    }
    if (instance != m_peer) {
        m_superseded = m_peer;
        m_peer = instance;
        beginNumbers();
        if (!m_greeting) {
            greet(now);
        }
    }
    m_heardAt = now;
    if (number(payload + 10, 8) != m_instance) {
        m_helloDue = true;
        return;
    }
    if (isSettled && !m_greeting) {
        return;
    }
    if (m_joined && m_control != 0 && received == m_sent + 1) {
        acknowledged();
    } else if (received != (m_joined ? m_sent : 0)) {
        endForGood(now);
        return;
    }
    if (!m_joined) {
        m_credit = static_cast<std::uint32_t>(number(payload + 22, 4));
        m_peerLongest = static_cast<std::uint32_t>(number(payload + 30, 4));
    }
    m_joined = true;
    m_greeting = false;
    m_helloDue = !isSettled;
    m_repeat = m_control != 0;
    m_tries = 0;
    m_sentAt = now;
}

void SmallHost::receiveNumbered(std::size_t size, std::uint32_t now)
{
    const std::uint8_t control = m_frame[0];
    const std::uint8_t* payload = m_frame + 3;
    const auto behind = static_cast<std::uint8_t>(m_received - m_frame[1]);
    if (behind != 0) {
        m_acknowledgeNow = m_acknowledgeNow || behind <= 64;
        return; // what is missing comes again after the sender's time-out
    }
    const bool isGrant = control == kGrant && size >= 11;
    const bool isBeyond = (control & kOfBulk) != 0 || size - 3 > kLongest - m_handled - m_messageSize;
    if (!isGrant && ((control & kUnknown) != 0 || isBeyond)) {
        endForGood(now);
        return;
    }
    ++m_received;
    if (m_unacknowledged++ == 0) {
        m_acknowledgeAt = now + 5;
    }
    m_acknowledgeNow = m_acknowledgeNow || m_unacknowledged >= 16;
    if (isGrant) {
        m_credit += static_cast<std::uint32_t>(number(payload, 4));
        return;
    }
    m_credit += (control & kGrantsState) != 0 ? 2048 : 0;
    receiveSegment(control, payload, size - 3);
}

void SmallHost::receiveSegment(std::uint8_t control, const std::uint8_t* payload, std::size_t size)
{
    if ((control & kFirst) != 0) {
        m_handled += static_cast<std::uint32_t>(m_messageSize);
        m_messageSize = 0;
        m_collecting = true;
    }
    if (!m_collecting) {
        m_handled += static_cast<std::uint32_t>(size);
        return;
    }
    memcpy(m_message + m_messageSize, payload, size);
    m_messageSize += size;
    if ((control & kLast) != 0) {
        m_collecting = false;
        m_handler(m_context, m_message, m_messageSize);
        m_handled += static_cast<std::uint32_t>(m_messageSize);
        m_messageSize = 0;
    }
}

void SmallHost::acknowledged()
{
    ++m_sent;
    if (m_control != kGrant) {
        m_outAt += m_segment;
        if (m_outAt == m_outSize) {
            m_outSize = 0;
        }
    }
    m_control = 0;
    m_repeat = false;
    m_tries = 0;
}

std::size_t SmallHost::transmit(std::uint8_t (&to)[kWire], std::uint32_t now)
{
    if (m_greeting && isDue(m_helloAt, now)) {
        m_helloDue = true;
    }
    if (!m_greeting && isDue(m_heardAt + 2800, now)) {
        greet(now);
    }
    if (!m_greeting && m_control != 0 && !m_repeat && isDue(m_repeatAt, now)) {
        m_repeat = true;
        m_repeatPause = m_repeatPause < 500 ? 2 * m_repeatPause : 1000;
        if (++m_tries == 8) {
            greet(now);
        }
    }
    if (m_helloDue) {
        return hello(to, now);
    }
    if (m_greeting) {
        return 0;
    }
    if (m_repeat) {
        return numbered(to, true, now);
    }
    if (m_control == 0) {
        chooseFrame();
        if (m_control != 0) {
            m_repeatPause = 200;
            return numbered(to, false, now);
        }
    }
    if (m_acknowledgeNow || (m_unacknowledged > 0 && isDue(m_acknowledgeAt, now))) {
        return frame(to, kAck, false, nullptr, 0, now);
    }
    return isDue(m_sentAt + 1250, now) ? frame(to, kAck, true, nullptr, 0, now) : 0;
}

/// Numbers what is to go out next, if anything.
void SmallHost::chooseFrame()
{
    const std::size_t peersCredit = kLongest - m_handled - m_messageSize;
    if (m_handled > 0 && peersCredit < kLowCredit) {
        put(m_grant, m_handled, 4);
        put(m_grant + 4, 0, 4);
        m_handled = 0;
        m_control = kGrant;
        m_segment = sizeof m_grant;
        return;
    }
    const std::size_t left = m_outSize - m_outAt;
    m_segment = left < kSegment ? left : kSegment;
    if (m_outSize == 0 || m_segment > m_credit) {
        return;
    }
    m_credit -= static_cast<std::uint32_t>(m_segment);
    m_control =
        static_cast<std::uint8_t>(kNumbered | (m_outAt == 0 ? kFirst : 0) | (left == m_segment ? kLast : 0));
}

std::size_t SmallHost::numbered(std::uint8_t* to, bool again, std::uint32_t now)
{
    m_repeat = false;
    m_repeatAt = now + m_repeatPause;
    return frame(to, m_control, again, m_control == kGrant ? m_grant : m_out + m_outAt, m_segment, now);
}

std::size_t SmallHost::hello(std::uint8_t* to, std::uint32_t now)
{
    m_helloDue = false;
    if (m_greeting) {
        m_helloAt = now + m_helloPause;
        m_helloPause = m_helloPause < 500 ? 2 * m_helloPause : 1000;
    }
    std::uint8_t payload[kHelloSize] = {1, static_cast<std::uint8_t>(m_greeting ? 0 : 1)};
    put(payload + 2, m_instance, 8);
    put(payload + 10, m_peer, 8);
    put(payload + 18, m_joined ? m_received : 0, 4);
    put(payload + 22, kLongest, 4);
    put(payload + 30, kLongest, 4);
    return frame(to, kHello, true, payload, sizeof payload, now);
}

std::size_t SmallHost::frame(std::uint8_t* to, std::uint8_t control, bool zeroFirst,
                             const std::uint8_t* payload, std::size_t size, std::uint32_t now)
{
    Writer writer(to, zeroFirst);
    const bool isHello = control == kHello;
    const bool isNumbering = (control & kNumbered) != 0 || m_control == 0;
    writer.add(control);
    writer.add(isHello ? 0 : static_cast<std::uint8_t>(isNumbering ? m_sent : m_sent + 1));
    writer.add(isHello ? 0 : static_cast<std::uint8_t>(m_received));
    for (std::size_t i = 0; i < size; ++i) {
        writer.add(payload[i]);
    }
    m_sentAt = now;
    if (!isHello) {
        m_unacknowledged = 0;
        m_acknowledgeNow = false;
    }
    return writer.finish();
}
