#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "platform/hostlink/ByteArray.h"

/// What must hold for any input.
inline void require(bool condition)
{
    if (!condition) {
        std::abort();
    }
}

/// The input as a sequence of choices; zeros when it is used up.
class FuzzScript
{
public:
    FuzzScript(const std::uint8_t* data, std::size_t size) : m_at(data), m_end(data + size) {}

    bool empty() const { return m_at == m_end; }
    std::uint8_t byte() { return empty() ? 0 : *m_at++; }

    /// Two bytes, the first one high.
    std::uint16_t number()
    {
        const std::uint8_t high = byte();
        return static_cast<std::uint16_t>(high << 8 | byte());
    }

    /// At most so many.
    ByteArray bytes(std::size_t size)
    {
        const std::size_t taken = std::min<std::size_t>(size, m_end - m_at);
        m_at += taken;
        return ByteArray(m_at - taken, m_at);
    }

private:
    const std::uint8_t* m_at;
    const std::uint8_t* m_end;
};

/// The input as messages: each behind its length in two bytes, the last one as long as it is.
class FuzzMessages
{
public:
    FuzzMessages(const std::uint8_t* data, std::size_t size) : m_at(data), m_end(data + size) {}

    bool next(ByteArray* message)
    {
        if (m_end - m_at < 2) {
            return false;
        }
        const std::ptrdiff_t size = m_at[0] << 8 | m_at[1];
        m_at += 2;
        const std::uint8_t* const end = m_at + std::min(size, m_end - m_at);
        message->assign(m_at, end);
        m_at = end;
        return true;
    }

private:
    const std::uint8_t* m_at;
    const std::uint8_t* m_end;
};
