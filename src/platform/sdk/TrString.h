#pragma once

#include <QString>

/// A text for people, in the language of the code; a user interface may have a translation of it.
class TrString
{
public:
    TrString() = default;
    explicit TrString(QString text) : m_text(std::move(text)) {}

    const QString& toString() const { return m_text; }

private:
    QString m_text;
};
