#include "platform/hostlink/HostLinkReceiveWindow.h"

#include <algorithm>

#include "platform/hostlink/HostLinkFrame.h"

void HostLinkReceiveWindow::beginSession()
{
    m_inUse -= m_partial.size();
    m_partial.clear();
    m_collecting = false;
    m_free = 0;
    m_credit = m_window - m_inUse;
}

bool HostLinkReceiveWindow::add(const std::uint8_t* segment, std::size_t size, bool first, bool last,
                                ByteArray& message, bool* dropped)
{
    *dropped = false;
    m_credit -= size;
    m_inUse += size;
    if (first && m_collecting) {
        handled(m_partial.size());
        m_partial.clear();
        *dropped = true;
    }
    if (!first && !m_collecting) {
        handled(size);
        *dropped = true;
        return false;
    }
    m_collecting = !last;
    if (first && last) {
        message.assign(segment, segment + size);
        *dropped = *dropped || size == 0;
        return size > 0;
    }
    m_partial.insert(m_partial.end(), segment, segment + size);
    if (!last) {
        return false;
    }
    message.swap(m_partial);
    m_partial.clear();
    *dropped = *dropped || message.empty();
    return !message.empty();
}

void HostLinkReceiveWindow::handled(std::size_t size)
{
    m_inUse -= size;
    m_free += size;
}

bool HostLinkReceiveWindow::takeQuantum()
{
    if (m_held || m_free < kQuantum) {
        return false;
    }
    m_free -= kQuantum;
    m_credit += kQuantum;
    return true;
}

bool HostLinkReceiveWindow::grantDue() const
{
    if (m_held || m_free == 0 || m_credit >= std::max(m_window / 2, HostLinkFrame::kMaxPayload)) {
        return false;
    }
    return m_free >= m_window / 8 || m_inUse == m_partial.size();
}

std::uint32_t HostLinkReceiveWindow::takeGrant()
{
    if (m_held) {
        return 0;
    }
    const auto granted = static_cast<std::uint32_t>(m_free);
    m_credit += m_free;
    m_free = 0;
    return granted;
}
