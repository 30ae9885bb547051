#include "services/Utf8.h"

#include <QFile>
#include <QTextCodec>

static constexpr qint64 kPart = 1 << 16;

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
    QByteArray bytes;
    for (QByteArray part = source.read(kPart); !part.isEmpty(); part = source.read(kPart)) {
        bytes += part; // the size of what is no plain file is not known before
        if (bytes.size() > kMostFileBytes) {
            *error = QString("%1 has more than %2 bytes").arg(file).arg(kMostFileBytes);
            return std::nullopt;
        }
    }
    std::optional<QString> text = fromUtf8(bytes);
    if (!text) {
        *error = file + " is not UTF-8";
    }
    return text;
}
