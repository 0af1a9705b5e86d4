#pragma once

#include <basix/BasixExport.h>

#include <QtCore/QChar>
#include <QtCore/QScopedPointer>
#include <QtCore/QStringList>
#include <QtCore/QVariant>

namespace tvl {

/**
 * A forgiving parser of a program's command line. It never fails: every argument is either an
 * option or a positional argument.
 *
 * The first element of the list is the program and is skipped. Each further argument reads as:
 *
 *   --name=value   the option "name" with the value "value"; "--name=" gives an empty,
 *                  non-null value. Only the first "=" splits, so "--a=b=c" gives "b=c".
 *   --name         the switch "name" (given, without a value)
 *   -x             the one-letter switch "x"
 *   -x=value       the one-letter option "x" with a value
 *   -name          a switch written with one dash, the way Qt's own options are ("-style"):
 *                  it is the same as "--name" (and "-name=value" as "--name=value")
 *   --             ends the options: everything after it is positional, dashes included
 *   -, --=v, -=v   positional (a lone dash, or a dash without a name)
 *   anything else  positional
 *
 * Names are case-sensitive. A value is never taken from the next argument: "--name value"
 * is the switch "name" followed by the positional argument "value". When an option is given
 * more than once, in any of its forms, the last one wins.
 */
class BASIX_EXPORT SimpleCommandLineParser
{
public:
    /// Parses `arguments`, whose first element is the program.
    explicit SimpleCommandLineParser(const QStringList& arguments);
    SimpleCommandLineParser(const SimpleCommandLineParser& other);
    SimpleCommandLineParser& operator=(const SimpleCommandLineParser& other);
    ~SimpleCommandLineParser();

    /**
     * True when `name` is given in its long form, or `shortName` (unless it is null or a
     * blank) in its one-letter form, with or without a value.
     */
    bool hasSwitch(const QString& name, const QChar& shortName = QChar()) const;

    /**
     * The value of the last occurrence of `name` or `shortName` (as for hasSwitch) as a
     * QString. `defaultValue` when the option is absent, and also when its last occurrence is
     * a switch without a value.
     */
    QVariant option(const QString& name, const QChar& shortName = QChar(),
                    const QVariant& defaultValue = QVariant()) const;

    /// The names of everything given, long or one-letter, without dashes, in first-seen order,
    /// each once.
    QStringList keys() const;

    /// The positional arguments in order (the program not included).
    QStringList positionalArguments() const;

    /// The arguments as given, the program first.
    QStringList arguments() const;

private:
    QScopedPointer<class SimpleCommandLineParserPrivate> d;
};

} // namespace tvl
