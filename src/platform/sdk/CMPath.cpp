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
    const bool separated = m_path.endsWith('/') || subpath.startsWith('/');
    return CMPath(separated ? m_path + subpath : m_path + '/' + subpath);
}
