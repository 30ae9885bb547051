#include "platform/sdk/VornJson.h"

#include <QJsonDocument>
#include <QJsonParseError>
#include <QLocale>
#include <QSet>
#include <QVariantHash>
#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>
#include <string_view>
#include <vector>

#include "platform/sdk/JsonKind.h"

namespace
{
constexpr std::string_view kStructure = "\"[]{},:";

bool isSpace(char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

int skipSpace(const QByteArray& text, int at)
{
    while (at < text.size() && isSpace(text[at])) {
        ++at;
    }
    return at;
}

int endOfString(const QByteArray& text, int quote)
{
    int at = quote + 1;
    while (at < text.size() && text[at] != '"') {
        at += text[at] == '\\' ? 2 : 1;
    }
    return std::min(at + 1, text.size());
}

/// Where a string, number or literal that begins at `at` ends: before anything that cannot be in it.
int endOfScalar(const QByteArray& text, int at)
{
    if (text[at] == '"') {
        return endOfString(text, at);
    }
    while (at < text.size() && !isSpace(text[at]) && kStructure.find(text[at]) == std::string_view::npos) {
        ++at;
    }
    return at;
}

QJsonParseError parseError(QJsonParseError::ParseError code, int offset)
{
    QJsonParseError error{};
    error.error = code;
    error.offset = offset;
    return error;
}

/// Parses the one value in `text`, which Qt 5 does only for objects and arrays: a scalar is cut out
/// and parsed as the only element of an array, so that nothing behind it can join that array.
QVariant parseBytes(const QByteArray& text, QJsonParseError* error)
{
    const int begin = skipSpace(text, 0);
    if (begin < text.size() && (text[begin] == '{' || text[begin] == '[')) {
        return QJsonDocument::fromJson(text, error).toVariant();
    }
    const int end = begin < text.size() ? endOfScalar(text, begin) : begin;
    if (begin == end) {
        *error = parseError(QJsonParseError::IllegalValue, begin);
        return {};
    }
    const QByteArray scalar = text.mid(begin, end - begin);
    const QVariantList only = QJsonDocument::fromJson('[' + scalar + ']', error).toVariant().toList();
    if (error->error != QJsonParseError::NoError) {
        error->offset = begin + std::clamp(error->offset - 1, 0, scalar.size());
        return {};
    }
    const int rest = skipSpace(text, end);
    if (rest < text.size()) {
        *error = parseError(QJsonParseError::GarbageAtEnd, rest);
        return {};
    }
    return only.value(0);
}

/// The text of a string in its quotes, as the parser takes it.
QString textOf(const QByteArray& string)
{
    if (!string.contains('\\')) {
        return QString::fromUtf8(string.mid(1, string.size() - 2));
    }
    return QJsonDocument::fromJson('[' + string + ']').toVariant().toList().value(0).toString();
}

/// Whether the string that ends there is a key.
bool isKey(const QByteArray& text, int end)
{
    const int next = skipSpace(text, end);
    return next < text.size() && text[next] == ':';
}

/// What Qt's parser would take and must not, and where.
struct Fault {
    int at;
    int code;
    QString what;
};

/// A zero byte has to be written as \u0000 (RFC 8259): Qt's parser takes keys that differ behind one for the
/// same. Of a key that stands twice in an object it leaks the first one's value. And a value must not be
/// deeper than its user can carry.
std::optional<Fault> findFault(const QByteArray& text, std::size_t levels)
{
    if (const int zero = text.indexOf('\0'); zero >= 0) {
        return Fault{zero, VornJson::Error::kZeroByte, "a zero byte"};
    }
    std::vector<QSet<QString>> open; // the keys of all that has begun
    for (int at = 0; at < text.size();) {
        const char c = text[at];
        const int end = c == '"' ? endOfString(text, at) : at + 1;
        if (c == '{' || c == '[') {
            if (open.size() == levels) {
                return Fault{at, VornJson::Error::kTooDeep, "more levels than a value may have"};
            }
            open.emplace_back();
        } else if (!open.empty() && (c == '}' || c == ']')) {
            open.pop_back();
        } else if (!open.empty() && c == '"' && isKey(text, end)) {
            const QString key = textOf(text.mid(at, end - at));
            if (open.back().contains(key)) {
                return Fault{at, VornJson::Error::kRepeatedKey, "this object has the key already"};
            }
            open.back().insert(key);
        }
        at = end;
    }
    return std::nullopt;
}

QVariant withHashes(const QVariant& value)
{
    if (value.type() == QVariant::Map) {
        const QVariantMap map = value.toMap();
        QVariantHash hash;
        for (auto field = map.begin(); field != map.end(); ++field) {
            hash.insert(field.key(), withHashes(*field));
        }
        return hash;
    }
    if (value.type() == QVariant::List) {
        QVariantList list = value.toList();
        std::transform(list.begin(), list.end(), list.begin(), withHashes);
        return list;
    }
    return value;
}

VornJson::Error makeError(const QByteArray& text, int offset, int code, const QString& what)
{
    const QByteArray before = text.left(offset);
    const QString line = QString::fromUtf8(before.mid(before.lastIndexOf('\n') + 1));
    const int column = static_cast<int>(line.toUcs4().size()) + 1;
    return {code, before.count('\n') + 1, column, what};
}

QVariant parseChecked(const QByteArray& text, std::size_t levels, VornJson::Error* error)
{
    if (const std::optional<Fault> fault = findFault(text, levels)) {
        *error = makeError(text, fault->at, fault->code, fault->what);
        return {};
    }
    QJsonParseError failure = parseError(QJsonParseError::NoError, 0);
    QVariant value = parseBytes(text, &failure);
    *error = failure.error == QJsonParseError::NoError
                 ? VornJson::Error()
                 : makeError(text, failure.offset, failure.error, failure.errorString());
    return value;
}

void printString(const QString& text, QString& out)
{
    out += '"';
    for (int i = 0; i < text.size(); ++i) {
        const QChar c = text[i];
        const bool pair = c.isHighSurrogate() && i + 1 < text.size() && text[i + 1].isLowSurrogate();
        if (pair) {
            out += c;
            out += text[++i];
        } else if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (c == '\n') {
            out += QLatin1String("\\n");
        } else if (c == '\r') {
            out += QLatin1String("\\r");
        } else if (c == '\t') {
            out += QLatin1String("\\t");
        } else if (c < ' ' || c.isSurrogate()) {
            out += QStringLiteral("\\u%1").arg(c.unicode(), 4, 16, QLatin1Char('0'));
        } else {
            out += c;
        }
    }
    out += '"';
}

QString printNumber(const QVariant& number)
{
    if (const std::optional<qint64> integer = jsonInteger(number)) {
        return QString::number(*integer);
    }
    if (number.type() == QVariant::ULongLong || static_cast<int>(number.type()) == QMetaType::ULong) {
        return QString::number(number.toULongLong());
    }
    const double real = number.toDouble();
    return std::isfinite(real) ? QString::number(real, 'g', QLocale::FloatingPointShortest)
                               : QStringLiteral("null");
}

void printValue(const QVariant& value, QString& out);

void printList(const QVariantList& list, QString& out)
{
    QLatin1String separator("[");
    for (const QVariant& element : list) {
        out += separator;
        printValue(element, out);
        separator = QLatin1String(",");
    }
    out += list.isEmpty() ? QLatin1String("[]") : QLatin1String("]");
}

void printHash(const QVariantHash& hash, QString& out)
{
    QStringList keys = hash.keys();
    keys.sort();
    QLatin1String separator("{");
    for (const QString& key : keys) {
        out += separator;
        printString(key, out);
        out += ':';
        printValue(hash.value(key), out);
        separator = QLatin1String(",");
    }
    out += keys.isEmpty() ? QLatin1String("{}") : QLatin1String("}");
}

void printValue(const QVariant& value, QString& out)
{
    switch (jsonKind(value)) {
    case JsonKind::Null: out += QLatin1String("null"); break;
    case JsonKind::Bool: out += value.toBool() ? QLatin1String("true") : QLatin1String("false"); break;
    case JsonKind::Number: out += printNumber(value); break;
    case JsonKind::String: printString(value.toString(), out); break;
    case JsonKind::Array: printList(value.toList(), out); break;
    case JsonKind::Object: printHash(value.toHash(), out); break;
    }
}

QVariant parseText(const QString& text, std::size_t levels, VornJson::Error* error)
{
    VornJson::Error failure;
    const QVariant value = parseChecked(text.toUtf8(), levels, &failure);
    if (error != nullptr) {
        *error = failure;
    }
    return withHashes(value);
}
} // namespace

VornJson::Error::Error(int code, int line, int column, QString text)
    : m_code(code), m_line(line), m_column(column), m_text(std::move(text))
{
}

QString VornJson::Error::toString() const
{
    return isEmpty() ? QString()
                     : QStringLiteral("line %1 column %2: %3").arg(m_line).arg(m_column).arg(m_text);
}

QVariant VornJson::parse(const QString& text, Error* error, int /*flags*/)
{
    return parseText(text, std::numeric_limits<std::size_t>::max(), error);
}

QVariant VornJson::parseValue(const QString& text, Error* error)
{
    return parseText(text, kValueLevels, error);
}

QString VornJson::print(const QVariant& value)
{
    QString out;
    printValue(value, out);
    return out;
}
