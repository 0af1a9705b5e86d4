#include "VersionNumber.h"

namespace tvl {

namespace {

bool isAsciiDigit(QChar c)
{
    return c >= QLatin1Char('0') && c <= QLatin1Char('9');
}

/**
 * The next piece of a suffix from `pos` on: a run of ASCII digits or a run of other letters
 * and numbers. Anything else ("-", ".", "+", "_", spaces) only separates pieces and is skipped,
 * so "beta.2" and "beta2" read alike. Returns an empty view at the end.
 */
QStringView nextPiece(QStringView text, qsizetype& pos)
{
    while (pos < text.size() && !text.at(pos).isLetterOrNumber())
        ++pos;
    const qsizetype start = pos;
    if (pos < text.size()) {
        const bool digits = isAsciiDigit(text.at(pos));
        while (pos < text.size() && text.at(pos).isLetterOrNumber()
               && isAsciiDigit(text.at(pos)) == digits)
            ++pos;
    }
    return text.mid(start, pos - start);
}

/// Compares runs of digits of any length as numbers, without converting them.
int compareDigits(QStringView a, QStringView b)
{
    while (a.size() > 1 && a.front() == QLatin1Char('0'))
        a = a.mid(1);
    while (b.size() > 1 && b.front() == QLatin1Char('0'))
        b = b.mid(1);
    if (a.size() != b.size())
        return a.size() < b.size() ? -1 : 1;
    return a.compare(b);
}

int compareSuffixes(QStringView a, QStringView b)
{
    qsizetype posA = 0;
    qsizetype posB = 0;
    for (;;) {
        const QStringView pieceA = nextPiece(a, posA);
        const QStringView pieceB = nextPiece(b, posB);
        if (pieceA.isEmpty() || pieceB.isEmpty()) {
            // The one with more pieces is greater: "beta" < "beta2".
            return pieceA.isEmpty() ? (pieceB.isEmpty() ? 0 : -1) : 1;
        }
        const bool numberA = isAsciiDigit(pieceA.front());
        const bool numberB = isAsciiDigit(pieceB.front());
        int result;
        if (numberA != numberB)
            result = numberA ? -1 : 1; // as in semantic versioning, numbers before words
        else if (numberA)
            result = compareDigits(pieceA, pieceB);
        else
            result = pieceA.compare(pieceB, Qt::CaseInsensitive);
        if (result != 0)
            return result < 0 ? -1 : 1;
    }
}

} // namespace

VersionNumber::VersionNumber(const QString& text)
    : m_text(text)
{
    QStringView rest = QStringView(text).trimmed();
    if (rest.size() > 1 && (rest.front() == QLatin1Char('v') || rest.front() == QLatin1Char('V'))
        && isAsciiDigit(rest.at(1)))
        rest = rest.mid(1);

    if (rest.isEmpty() || !isAsciiDigit(rest.front())) {
        m_suffix = text.trimmed();
        return;
    }

    qsizetype suffixIndex = 0;
    m_numbers = QVersionNumber::fromString(rest, &suffixIndex);
    if (m_numbers.isNull()) {
        m_suffix = text.trimmed();
        return;
    }
    QStringView suffix = rest.mid(suffixIndex);
    if (!suffix.isEmpty()
        && (suffix.front() == QLatin1Char('-') || suffix.front() == QLatin1Char('+')
            || suffix.front() == QLatin1Char('.') || suffix.front() == QLatin1Char('_')))
        suffix = suffix.mid(1);
    m_suffix = suffix.toString();
}

int VersionNumber::compare(const VersionNumber& a, const VersionNumber& b)
{
    if (a.isNull() != b.isNull())
        return a.isNull() ? -1 : 1;

    if (!a.isNull()) {
        // QVersionNumber orders "1.2" before "1.2.0"; here missing segments count as 0.
        const int numbers = QVersionNumber::compare(a.m_numbers.normalized(), b.m_numbers.normalized());
        if (numbers != 0)
            return numbers < 0 ? -1 : 1;
        if (a.m_suffix.isEmpty() != b.m_suffix.isEmpty())
            return a.m_suffix.isEmpty() ? 1 : -1;
    }
    return compareSuffixes(a.m_suffix, b.m_suffix);
}

} // namespace tvl
