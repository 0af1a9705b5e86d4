#include "AbstractLoggerOutput.h"

namespace tvl {

namespace {

// Zero-padded decimal without going through QString::arg or QDateTime::toString, which cost
// more than the rest of the line together. An invalid time (parts of -1) comes out as zeros.
void appendPadded(QString& out, int value, int width)
{
    value = qMax(value, 0);
    char16_t digits[12];
    int count = 0;
    do {
        digits[count++] = char16_t(u'0' + value % 10);
        value /= 10;
    } while (value > 0);
    for (int i = count; i < width; ++i)
        out += QLatin1Char('0');
    while (count > 0)
        out += QChar(digits[--count]);
}

} // namespace

AbstractLoggerOutput::~AbstractLoggerOutput() = default;

void AbstractLoggerOutput::flush()
{
}

QString AbstractLoggerOutput::formatRecord(const QString& message, const QString& file,
                                           const QString& function, const QString& threadName,
                                           int line, Logger::Level level, const QDateTime& time,
                                           int threadId)
{
    const QDateTime local = time.timeSpec() == Qt::LocalTime ? time : time.toLocalTime();
    const QDate date = local.date();
    const QTime clock = local.time();

    QString out;
    out.reserve(48 + threadName.size() + file.size() + function.size() + message.size());
    appendPadded(out, date.year(), 4);
    out += QLatin1Char('-');
    appendPadded(out, date.month(), 2);
    out += QLatin1Char('-');
    appendPadded(out, date.day(), 2);
    out += QLatin1Char(' ');
    appendPadded(out, clock.hour(), 2);
    out += QLatin1Char(':');
    appendPadded(out, clock.minute(), 2);
    out += QLatin1Char(':');
    appendPadded(out, clock.second(), 2);
    out += QLatin1Char('.');
    appendPadded(out, clock.msec(), 3);

    out += QLatin1Char(' ');
    out += Logger::levelName(level);

    out += QLatin1String(" [");
    if (!threadName.isEmpty()) {
        out += threadName;
        out += QLatin1Char(':');
    }
    out += QString::number(threadId);
    out += QLatin1Char(']');

    if (!file.isEmpty()) {
        out += QLatin1Char(' ');
        out += file;
        if (line > 0) {
            out += QLatin1Char(':');
            out += QString::number(line);
        }
    }
    if (!function.isEmpty()) {
        out += QLatin1Char(' ');
        out += function;
        out += QLatin1Char(':');
    }
    if (!message.isEmpty()) {
        out += QLatin1Char(' ');
        out += message;
    }
    return out;
}

} // namespace tvl
