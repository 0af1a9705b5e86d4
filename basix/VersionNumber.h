#pragma once

#include <basix/BasixExport.h>

#include <QtCore/QString>
#include <QtCore/QVersionNumber>

namespace tvl {

/**
 * A version such as "3.11.1", "v2.0", "1.4.0-beta2" or "1.4rc1": numeric segments read by
 * QVersionNumber, an optional leading "v", and a suffix (whatever follows the numbers, without
 * a leading "-", "+", "." or "_").
 *
 * Ordering:
 *  - numbers first, segment by segment, missing segments counting as 0, so "1.2" equals
 *    "1.2.0" and "1.10" is greater than "1.9";
 *  - with equal numbers, a version without a suffix is greater than one with a suffix (a
 *    suffix marks a pre-release: "1.2-rc1" < "1.2");
 *  - two suffixes compare piece by piece, digits as numbers and letters case-insensitively
 *    ("alpha" < "beta" < "rc", "beta2" < "beta10");
 *  - a text without leading numbers is null and is less than every non-null version; two null
 *    versions compare by their suffixes (the whole text) as above.
 */
class BASIX_EXPORT VersionNumber
{
public:
    VersionNumber() = default;
    explicit VersionNumber(const QString& text);

    bool isNull() const { return m_numbers.isNull(); }
    QVersionNumber numbers() const { return m_numbers; }
    QString suffix() const { return m_suffix; }
    /// The text the version was read from.
    QString toString() const { return m_text; }

    /// Negative, zero or positive as `a` is less than, equal to or greater than `b`.
    static int compare(const VersionNumber& a, const VersionNumber& b);

    friend bool operator==(const VersionNumber& a, const VersionNumber& b) { return compare(a, b) == 0; }
    friend bool operator!=(const VersionNumber& a, const VersionNumber& b) { return compare(a, b) != 0; }
    friend bool operator<(const VersionNumber& a, const VersionNumber& b) { return compare(a, b) < 0; }
    friend bool operator<=(const VersionNumber& a, const VersionNumber& b) { return compare(a, b) <= 0; }
    friend bool operator>(const VersionNumber& a, const VersionNumber& b) { return compare(a, b) > 0; }
    friend bool operator>=(const VersionNumber& a, const VersionNumber& b) { return compare(a, b) >= 0; }

private:
    QString m_text;
    QVersionNumber m_numbers;
    QString m_suffix;
};

} // namespace tvl
