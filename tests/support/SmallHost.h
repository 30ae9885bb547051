#pragma once

#include <cstddef>
#include <cstdint>

/// A host as a microcontroller would be one, written after docs/protocol.md alone: fixed memory, no heap,
/// state messages of up to 1 KB, one frame in flight, no naks, no bulk. Times are milliseconds of a clock
/// that may wrap around.
class SmallHost
{
public:
    static constexpr std::size_t kLongest = 1024; ///< bytes of a message
    static constexpr std::size_t kWire = 514;     ///< bytes of a frame on the wire

    /// Gets each message that comes; it is handled when this returns.
    using Handler = void (*)(void* context, const std::uint8_t* message, std::size_t size);

    /// `drawInstance` gives numbers that no start before has had, never 0.
    SmallHost(std::uint64_t (*drawInstance)(), Handler handler, void* context);

    void lineUp(std::uint32_t now);
    void receive(const std::uint8_t* bytes, std::size_t size, std::uint32_t now);

    /// Writes one frame that is to go out now; returns its size, 0 for none. To be called until it returns 0,
    /// at least each millisecond.
    std::size_t transmit(std::uint8_t (&to)[kWire], std::uint32_t now);

    /// False when there is no session, the message before is still under way, or this one is too long.
    bool send(const std::uint8_t* message, std::size_t size);

    bool isInSession() const { return m_joined; }

private:
    void greet(std::uint32_t now);
    void endForGood(std::uint32_t now);
    void beginNumbers();
    void receiveByte(std::uint8_t byte, std::uint32_t now);
    void receiveFrame(std::uint32_t now);
    void receiveHello(const std::uint8_t* payload, std::size_t size, std::uint32_t now);
    void receiveNumbered(std::size_t size, std::uint32_t now);
    void receiveSegment(std::uint8_t control, const std::uint8_t* payload, std::size_t size);
    void acknowledged();
    void chooseFrame();
    std::size_t frame(std::uint8_t* to, std::uint8_t control, bool zeroFirst, const std::uint8_t* payload,
                      std::size_t size, std::uint32_t now);
    std::size_t hello(std::uint8_t* to, std::uint32_t now);
    std::size_t numbered(std::uint8_t* to, bool again, std::uint32_t now);

    std::uint64_t (*m_drawInstance)();
    Handler m_handler;
    void* m_context;

    // Sessions
    std::uint64_t m_instance;
    std::uint64_t m_peer = 0;
    std::uint64_t m_superseded = 0;
    bool m_greeting = true;
    bool m_helloDue = false;
    bool m_joined = false;
    std::uint32_t m_helloAt = 0;
    std::uint32_t m_helloPause = 0;
    std::uint32_t m_sentAt = 0;
    std::uint32_t m_heardAt = 0;

    // Receiving
    std::uint8_t m_frame[508];
    std::size_t m_frameSize = 0;
    bool m_frameBad = false;
    std::uint8_t m_code = 0; ///< of the present piece, 0 before the first
    std::uint8_t m_left = 0; ///< bytes of it that are still to come
    std::uint8_t m_message[kLongest];
    std::size_t m_messageSize = 0;
    bool m_collecting = false;
    std::uint32_t m_received = 0; ///< numbered frames
    std::uint32_t m_unacknowledged = 0;
    std::uint32_t m_acknowledgeAt = 0;
    bool m_acknowledgeNow = false;
    std::uint32_t m_handled = 0; ///< bytes to be granted again

    // Sending
    std::uint8_t m_out[kLongest];
    std::size_t m_outSize = 0; ///< 0: nothing is under way
    std::size_t m_outAt = 0;   ///< bytes acknowledged
    std::uint32_t m_credit = 0;
    std::uint32_t m_peerLongest = 0;
    std::uint32_t m_sent = 0;   ///< numbered frames acknowledged; the one in flight has this number
    std::uint8_t m_control = 0; ///< of the one in flight, 0 for none
    std::uint8_t m_grant[8];    ///< its payload, when it is a grant
    std::size_t m_segment = 0;  ///< its payload's size
    bool m_repeat = false;      ///< it goes out again now
    std::uint32_t m_repeatAt = 0;
    std::uint32_t m_repeatPause = 0;
    std::uint8_t m_tries = 0;
};
