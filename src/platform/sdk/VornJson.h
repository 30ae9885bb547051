#pragma once

#include <QString>
#include <QVariant>

/// Reading and writing of JSON (RFC 8259). Integers of up to 64 bits stay exact.
class VornJson
{
public:
    /// Its place is where the parser gave up: at what is wrong or just behind it.
    class Error
    {
    public:
        Error() = default;
        Error(int code, int line, int column, QString text);

        static constexpr int kRepeatedKey = 1000;
        static constexpr int kZeroByte = 1001;
        static constexpr int kTooDeep = 1002;

        int code() const { return m_code; }     ///< 0 for none, one of the above, or the parser's own
        int line() const { return m_line; }     ///< from 1
        int column() const { return m_column; } ///< from 1, in characters
        bool isEmpty() const { return m_code == 0; }

        /// "line 1 column 5: unterminated string", empty without an error.
        QString toString() const;

    private:
        int m_code = 0;
        int m_line = 0;
        int m_column = 0;
        QString m_text;
    };

    /// Any JSON value; invalid, and *error set, when the text is not exactly one. Objects become
    /// QVariantHash, arrays QVariantList, integers qlonglong. An object that has a key twice is an error.
    /// `flags` is reserved and 0.
    static QVariant parse(const QString& text, Error* error, int flags = 0);

    /// The same for a text that becomes a node's value. It has fewer levels than the 1024 that parse() takes:
    /// what carries values has some of its own, the settings file and the messages of the node API.
    static constexpr std::size_t kValueLevels = 1000;
    static QVariant parseValue(const QString& text, Error* error);

    /// Compact text of a variant as parse() makes it, keys sorted.
    static QString print(const QVariant& value);
};
