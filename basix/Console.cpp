#include "Console.h"

#include <QtCore/QByteArray>
#include <QtCore/QByteArrayList>
#include <QtCore/QMutex>

#include <cstdio>
#include <unistd.h>

namespace tvl {

namespace {

/// Follows the NO_COLOR convention: set to anything but an empty string, it turns colours off.
bool colorsAllowed(FILE* stream)
{
    return ::isatty(::fileno(stream)) == 1 && qEnvironmentVariableIsEmpty("NO_COLOR");
}

QByteArray escapeSequence(Console::Color color, Console::Styles styles)
{
    QByteArrayList codes;
    if (styles.testFlag(Console::Bold))
        codes.append(QByteArrayLiteral("1"));
    if (styles.testFlag(Console::Underline))
        codes.append(QByteArrayLiteral("4"));
    if (styles.testFlag(Console::Reverse))
        codes.append(QByteArrayLiteral("7"));
    if (color >= Console::Black && color <= Console::White)
        codes.append(QByteArray::number(30 + int(color)));
    if (codes.isEmpty())
        return QByteArray();
    return "\x1b[" + codes.join(';') + 'm';
}

} // namespace

void Console::pprint(const QString& text, Output output, Color color, Styles styles)
{
    // One lock for both streams: on a terminal they usually end up on the same screen.
    static QBasicMutex mutex;

    FILE* stream = output == StandardError ? stderr : stdout;
    const QByteArray bytes = text.toUtf8();

    const QMutexLocker locker(&mutex);
    const QByteArray start = colorsAllowed(stream) ? escapeSequence(color, styles) : QByteArray();
    if (!start.isEmpty())
        std::fwrite(start.constData(), 1, size_t(start.size()), stream);
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stream);
    if (!start.isEmpty())
        std::fputs("\x1b[0m", stream);
    std::fflush(stream);
}

} // namespace tvl
