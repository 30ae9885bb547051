#pragma once

#include <QMetaType>
#include <QString>

#include "platform/sdk/TrString.h"

/// Why a set or an invocation failed.
class CMError
{
public:
    enum Code { None = 0, NoSuchNode, ReadOnly, WrongType, NotInvocable, Refused };

    CMError() = default;
    CMError(Code code, QString message)
        : m_code(code), m_name(defaultName()), m_title(defaultTitle()), m_message(std::move(message))
    {
    }

    /// The refusal of a node's owner. The name is for programs, the title stands above the message.
    explicit CMError(const TrString& message, QString name = defaultName(), QString title = defaultTitle())
        : m_code(Refused), m_name(std::move(name)), m_title(std::move(title)), m_message(message.toString())
    {
    }

    static QString defaultName() { return QStringLiteral("Error"); }
    static QString defaultTitle() { return QStringLiteral("Error"); }

    bool isError() const { return m_code != None; }
    Code code() const { return m_code; }
    const QString& Name() const { return m_name; }
    const QString& Title() const { return m_title; }
    const QString& Message() const { return m_message; }

private:
    Code m_code = None;
    QString m_name;
    QString m_title;
    QString m_message;
};

Q_DECLARE_METATYPE(CMError)
