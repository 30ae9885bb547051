#include "platform/sdk/CMPath.h"

namespace
{
QString fromView(std::string_view text)
{
    return QString::fromLatin1(text.data(), static_cast<int>(text.size()));
}

QString wellKnownPath(Node node)
{
    const QString path = fromView(nodeRow(node).path);
    return isBelowPlayerInstance(node) ? fromView(kPlayerInstancePath) + '/' + path : path;
}
} // namespace

CMPath::CMPath(QString path) : m_path(std::move(path)) {}

CMPath::CMPath(Node node) : m_path(wellKnownPath(node)) {}

CMPath CMPath::appendSubpath(const QString& subpath) const
{
    if (subpath.isEmpty()) {
        return *this;
    }
    const QString base = m_path.endsWith('/') ? m_path.chopped(1) : m_path;
    return CMPath(subpath.startsWith('/') ? base + subpath : base + '/' + subpath);
}
