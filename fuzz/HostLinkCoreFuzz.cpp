#include <set>

#include "FuzzInput.h"
#include "platform/hostlink/BigEndian.h"
#include "platform/hostlink/HostLinkFrame.h"
#include "platform/hostlink/HostLinkLog.h"
#include "support/SimulatedLink.h"

using namespace std::chrono_literals;

namespace
{

constexpr std::size_t kQueueBytes = 8000;
constexpr std::size_t kCreditBytes = 3000;
constexpr std::size_t kMaxScript = 600;

HostLinkCore::Settings smallSettings()
{
    HostLinkCore::Settings settings;
    settings.queueBytes[0] = settings.queueBytes[1] = kQueueBytes;
    settings.creditBytes[0] = settings.creditBytes[1] = kCreditBytes;
    return settings;
}

/// Plays a script on two joined ends. As long as no forged frame (one with a right CRC) was in it, what
/// arrives must be what was sent: once, and in order within its class.
class Player
{
public:
    explicit Player(FuzzScript script) : m_script(script), m_link({}, 1, smallSettings()) {}

    void play()
    {
        m_link.filter = [this](int, const ByteArray&) { return m_lose == 0 || m_lose-- == 0; };
        m_link.lineUp();
        while (!m_script.empty()) {
            act();
            check();
        }
        finish();
        if (!m_forged && !m_restarted) {
            requireComplete();
        }
        requireQuiet();
    }

private:
    void act()
    {
        const std::uint8_t action = m_script.byte();
        const int end = action & 1;
        switch (action >> 1 & 0x0F) {
        case 0: send(end, MSG_StateChanged, m_script.byte()); break;
        case 1: send(end, MSG_DataTransfer, m_script.byte() * 11U); break;
        case 2: m_link.run(std::chrono::microseconds(m_script.byte() * 20)); break;
        case 3: m_link.run(std::chrono::milliseconds(m_script.byte() * 20)); break;
        case 4: m_lose = action >> 5; break;
        case 5: m_link.inject(end, ByteArray(m_script.byte() + 1U, action & 0x20 ? 0x00 : 0xFF)); break;
        case 6: m_link.inject(end, m_script.bytes(action >> 5)); break;
        case 7: forge(end); break;
        case 8: restart(end, (action & 0x20) != 0); break;
        case 9: m_link.lineDown(); break;
        case 10: raiseLine(); break;
        case 11: m_link.ends[end].stuck = !m_link.ends[end].stuck; break;
        case 12: switchHandling(end); break;
        case 13: handle(end, 4); break;
        case 14: damage(action >> 5); break;
        case 15: goodbye(end, (action & 0xE0) == 0xE0); break;
        }
    }

    void send(int end, MessageId id, std::size_t size)
    {
        ByteArray message;
        appendBigEndian(message, static_cast<std::uint16_t>(id));
        appendBigEndian(message, m_number);
        message.resize(message.size() + size, static_cast<std::uint8_t>(m_number));
        const bool writable = m_link.ends[end]->writable(messageClass(id), message.size());
        require(m_link.ends[end]->send(message, m_link.now) == writable);
        if (writable) {
            m_sent[end].insert(m_number);
        }
        ++m_number;
    }

    void forge(int end)
    {
        m_forged = true;
        HostLinkFrame frame;
        frame.control = m_script.byte();
        frame.sequence = m_script.byte();
        frame.acknowledgement = m_script.byte();
        const ByteArray payload = m_script.bytes(m_script.byte());
        frame.payload = payload.data();
        frame.size = payload.size();
        HostLinkFrameEncoder encoder;
        encoder.encode(frame, true);
        m_link.inject(end, ByteArray(encoder.data(), encoder.data() + encoder.size()));
    }

    void restart(int end, bool shown)
    {
        m_restarted = true;
        // What an end has taken and not handled goes with it.
        m_handled[end] = m_link.ends[end].received.size();
        m_link.restart(m_link.ends[end], shown);
    }

    void raiseLine()
    {
        if (!m_link.isUp()) {
            m_link.lineUp();
        }
    }

    void switchHandling(int end)
    {
        SimulatedLink::End& it = m_link.ends[end];
        if (!it.handles) {
            handle(end, it.received.size());
        }
        it.handles = !it.handles;
    }

    void handle(int end, std::size_t most)
    {
        SimulatedLink::End& it = m_link.ends[end];
        for (; most > 0 && !it.handles && m_handled[end] < it.received.size(); --most) {
            ++m_handled[end];
            it->handled();
        }
    }

    void damage(int amount)
    {
        SimulatedLink::Faults faults;
        faults.flip = faults.drop = faults.duplicate = 0.0005 * amount;
        faults.split = 0.02 * amount;
        faults.burst = 40;
        m_link.setFaults(faults);
    }

    void goodbye(int end, bool really)
    {
        if (really) {
            m_restarted = true;
            m_link.ends[end]->goodbye(m_link.now);
        }
    }

    /// What must hold at any time.
    void check()
    {
        for (int end = 0; end < 2; ++end) {
            const SimulatedLink::End& it = m_link.ends[end];
            for (; m_checked[end] < it.received.size(); ++m_checked[end]) {
                checkMessage(end, it.received[m_checked[end]]);
            }
            std::size_t unhandled = 0;
            for (std::size_t i = m_handled[end]; !it.handles && i < it.received.size(); ++i) {
                unhandled += it.received[i].size();
            }
            if (it.handles) {
                m_handled[end] = it.received.size();
            }
            require(unhandled <= 2 * kCreditBytes);
        }
    }

    void checkMessage(int end, const ByteArray& message)
    {
        require(message.size() <= kCreditBytes);
        if (m_forged) {
            return;
        }
        require(message.size() >= 6);
        const auto number = readBigEndian<std::uint32_t>(message.data() + 2);
        require(m_sent[1 - end].count(number) == 1);
        const auto messageClass =
            static_cast<std::size_t>(::messageClass(HostLinkMessage::messageId(message)));
        require(m_last[end][messageClass] < number + 1);
        m_last[end][messageClass] = number + 1;
        for (std::size_t i = 6; i < message.size(); ++i) {
            require(message[i] == static_cast<std::uint8_t>(number));
        }
    }

    /// Lets a good line and willing ends get on with each other.
    void finish()
    {
        m_lose = 0;
        m_link.setFaults({});
        raiseLine();
        for (SimulatedLink::End& end : m_link.ends) {
            end.stuck = false;
        }
        for (int i = 0; i < 100; ++i) {
            m_link.run(100ms);
            for (int end = 0; end < 2; ++end) {
                handle(end, m_link.ends[end].received.size());
            }
            check();
        }
    }

    /// Everything that was taken has arrived.
    void requireComplete()
    {
        for (int end = 0; end < 2; ++end) {
            require(m_link.ends[end]->session() == HostLinkCore::Session::Established);
            const bool oneSession = m_link.a->sessionNumber() == 1 && m_link.b->sessionNumber() == 1;
            require(!oneSession || m_link.ends[end].received.size() == m_sent[1 - end].size());
        }
    }

    /// Whatever happened, the ends do not go on talking about it.
    void requireQuiet()
    {
        m_link.run(30s);
        const std::uint64_t before = m_link.a.frames + m_link.b.frames;
        m_link.run(10s);
        require(m_link.a.frames + m_link.b.frames - before <= 24);
    }

    FuzzScript m_script;
    SimulatedLink m_link;
    std::uint32_t m_number = 0;
    std::set<std::uint32_t> m_sent[2];
    std::size_t m_checked[2] = {};
    std::size_t m_handled[2] = {};
    std::uint32_t m_last[2][2] = {};
    int m_lose = 0;
    bool m_forged = false;
    bool m_restarted = false;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    HostLinkLog::setSink([](HostLinkLog::Level, const std::string&) {});
    Player(FuzzScript(data, std::min(size, kMaxScript))).play();
    return 0;
}
