#include "services/Utf8.h"

#include <QFile>
#include <QTextCodec>

std::optional<QString> fromUtf8(const QByteArray& bytes)
{
    constexpr int kUtf8 = 106; // the encoding's registered number
    QTextCodec::ConverterState state(QTextCodec::IgnoreHeader);
    QString text = QTextCodec::codecForMib(kUtf8)->toUnicode(bytes.constData(), bytes.size(), &state);
    if (state.invalidChars != 0 || state.remainingChars != 0) {
        return std::nullopt;
    }
    return text;
}

std::optional<QString> readUtf8File(const QString& file, QString* error)
{
    QFile source(file);
    if (!source.open(QIODevice::ReadOnly)) {
        *error = file + ": " + source.errorString();
        return std::nullopt;
    }
    std::optional<QString> text = fromUtf8(source.readAll());
    if (!text) {
        *error = file + " is not UTF-8";
    }
    return text;
}
