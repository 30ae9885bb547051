#include "services/Utf8.h"

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
