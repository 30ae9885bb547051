#pragma once

#include <QMetaType>
#include <QString>

/// Why a set or an invocation failed.
class CMError
{
public:
    enum Code { None = 0, NoSuchNode, ReadOnly, WrongType, NotInvocable, Refused };

    CMError() = default;
    CMError(Code code, QString message) : m_code(code), m_message(std::move(message)) {}

    bool isError() const { return m_code != None; }
    Code code() const { return m_code; }
    const QString& Message() const { return m_message; }

private:
    Code m_code = None;
    QString m_message;
};

Q_DECLARE_METATYPE(CMError)
