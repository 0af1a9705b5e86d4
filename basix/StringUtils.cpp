#include "StringUtils.h"

namespace tvl {

QString tv_string_replace(const QString& text, const QHash<QString, QString>& hash)
{
    static const QLatin1String opening("%(");

    qsizetype from = text.indexOf(opening);
    if (from < 0 || hash.isEmpty())
        return text;

    QString result;
    result.reserve(text.size());
    qsizetype copied = 0;
    while (from >= 0) {
        const qsizetype close = text.indexOf(QLatin1Char(')'), from + opening.size());
        if (close < 0)
            break; // no later placeholder can be closed either
        const auto it = hash.constFind(text.mid(from + opening.size(), close - from - opening.size()));
        if (it == hash.constEnd()) {
            // Only "%(" is passed over, so that "%(a %(b)" still finds "%(b)".
            from = text.indexOf(opening, from + opening.size());
            continue;
        }
        result += QStringView(text).mid(copied, from - copied);
        result += *it;
        copied = close + 1;
        from = text.indexOf(opening, copied);
    }
    result += QStringView(text).mid(copied);
    return result;
}

} // namespace tvl
