#include "Logger.h"

#include <QtCore/QAssociativeIterable>
#include <QtCore/QDebug>
#include <QtCore/QLocale>
#include <QtCore/QSequentialIterable>

#include <charconv>
#include <cmath>

// Strings and numbers are appended to the message directly: a QDebug builds a QTextStream,
// which costs several times a whole record, and most records hold nothing else. QDebug formats
// the values it writes as a record wants them (see appendVariant()).

namespace tvl {

namespace {

void appendDouble(QString& out, double value)
{
    // QString::number() drops the sign of -0, which would then read back as another value;
    // QDebug would also cut the digits to six.
    if (value == 0 && std::signbit(value))
        out += QLatin1Char('-');
    out += QString::number(value, 'g', QLocale::FloatingPointShortest);
}

template <typename Integer>
void appendInteger(QString& out, Integer value)
{
    char digits[24];
    const std::to_chars_result result = std::to_chars(digits, digits + sizeof digits, value);
    out += QLatin1String(digits, result.ptr);
}

void appendVariant(QString& out, const QVariant& value);

// QDebug would write every item as a QVariant(type, value) and name the container.
void appendSequence(QString& out, const QSequentialIterable& items)
{
    out += QLatin1Char('(');
    bool first = true;
    for (const QVariant& item : items) {
        if (!first)
            out += QLatin1String(", ");
        first = false;
        appendVariant(out, item);
    }
    out += QLatin1Char(')');
}

void appendMap(QString& out, const QAssociativeIterable& map)
{
    out += QLatin1Char('{');
    bool first = true;
    for (auto it = map.begin(); it != map.end(); ++it) {
        if (!first)
            out += QLatin1String(", ");
        first = false;
        appendVariant(out, it.key());
        out += QLatin1String(": ");
        appendVariant(out, it.value());
    }
    out += QLatin1Char('}');
}

void appendVariant(QString& out, const QVariant& value)
{
    if (!value.isValid()) {
        out += QLatin1String("QVariant()");
        return;
    }
    QMetaType type = value.metaType(); // debugStream() is not const in Qt 6.4
    switch (type.id()) {
    case QMetaType::QString:
        out += value.toString();
        return;
    case QMetaType::Double:
        appendDouble(out, value.toDouble());
        return;
    case QMetaType::QVariantList:
    case QMetaType::QStringList:
    case QMetaType::QByteArrayList:
        appendSequence(out, value.value<QSequentialIterable>());
        return;
    case QMetaType::QVariantMap:
        appendMap(out, value.value<QAssociativeIterable>());
        return;
    case QMetaType::QVariantHash:
        // A hash has no order of its own; in key order, the text of equal hashes is equal.
        appendMap(out, QVariant(value.toMap()).value<QAssociativeIterable>());
        return;
    default:
        break;
    }
    // Strings, byte arrays, numbers, dates, URLs... QString and QByteArray can also be viewed
    // as sequences, so this comes first.
    if (value.canConvert<QString>()) {
        out += value.toString();
    } else if (value.canView<QSequentialIterable>()) {
        appendSequence(out, value.value<QSequentialIterable>());
    } else if (value.canView<QAssociativeIterable>()) {
        appendMap(out, value.value<QAssociativeIterable>());
    } else if (type.hasRegisteredDebugStreamOperator()) {
        QDebug debug(&out);
        debug.nospace().noquote();
        type.debugStream(debug, value.constData());
    } else {
        out += QLatin1String("QVariant(") + QLatin1String(type.name()) + QLatin1Char(')');
    }
}

} // namespace

Logger::Stream::Stream(const QString& file, const QString& function, int line, Level level)
    : m_file(file)
    , m_function(function)
    , m_line(line)
    , m_level(level)
{
}

Logger::Stream::Stream(QLatin1String file, QLatin1String function, int line, Level level)
    : m_staticFile(file)
    , m_staticFunction(function)
    , m_line(line)
    , m_level(level)
{
}

Logger::Stream::~Stream()
{
    Logger* logger = Logger::instance();
    if (m_staticFile.data() || m_staticFunction.data())
        logger->log(m_message, m_staticFile, m_staticFunction, m_line, m_level);
    else
        logger->log(m_message, m_file, m_function, m_line, m_level);
}

QString& Logger::Stream::next()
{
    if (m_hasItems)
        m_message += QLatin1Char(' ');
    m_hasItems = true;
    return m_message;
}

Logger::Stream& Logger::Stream::operator<<(const QString& text)
{
    next() += text;
    return *this;
}

Logger::Stream& Logger::Stream::operator<<(QStringView text)
{
    next() += text;
    return *this;
}

Logger::Stream& Logger::Stream::operator<<(QLatin1String text)
{
    next() += text;
    return *this;
}

Logger::Stream& Logger::Stream::operator<<(const char* text)
{
    QString& out = next();
    if (!text)
        return *this;
    // Nearly always ASCII, which appends without a temporary string.
    const char* end = text;
    bool ascii = true;
    for (; *end; ++end)
        ascii = ascii && uchar(*end) < 0x80;
    if (ascii)
        out += QLatin1String(text, end);
    else
        out += QString::fromUtf8(text, end - text);
    return *this;
}

Logger::Stream& Logger::Stream::operator<<(QChar character)
{
    // QDebug would escape control and non-ASCII characters.
    next() += character;
    return *this;
}

Logger::Stream& Logger::Stream::operator<<(char character)
{
    next() += QLatin1Char(character);
    return *this;
}

Logger::Stream& Logger::Stream::operator<<(bool value)
{
    next() += value ? QLatin1String("true") : QLatin1String("false");
    return *this;
}

Logger::Stream& Logger::Stream::operator<<(int value)
{
    appendInteger(next(), value);
    return *this;
}

Logger::Stream& Logger::Stream::operator<<(unsigned int value)
{
    appendInteger(next(), value);
    return *this;
}

Logger::Stream& Logger::Stream::operator<<(long value)
{
    appendInteger(next(), value);
    return *this;
}

Logger::Stream& Logger::Stream::operator<<(unsigned long value)
{
    appendInteger(next(), value);
    return *this;
}

Logger::Stream& Logger::Stream::operator<<(long long value)
{
    appendInteger(next(), value);
    return *this;
}

Logger::Stream& Logger::Stream::operator<<(unsigned long long value)
{
    appendInteger(next(), value);
    return *this;
}

Logger::Stream& Logger::Stream::operator<<(double value)
{
    appendDouble(next(), value);
    return *this;
}

Logger::Stream& Logger::Stream::operator<<(const QVariant& value)
{
    appendVariant(next(), value);
    return *this;
}

Logger::Stream& Logger::Stream::operator<<(const QUrl& url)
{
    // QDebug would write QUrl("...").
    next() += url.toString();
    return *this;
}

Logger::Stream& Logger::Stream::operator<<(const QStringList& list)
{
    // QDebug would write QList(...).
    QString& out = next();
    out += QLatin1Char('(');
    out += list.join(QLatin1String(", "));
    out += QLatin1Char(')');
    return *this;
}

Logger::Stream& Logger::Stream::operator<<(const QByteArray& bytes)
{
    next() += QString::fromUtf8(bytes);
    return *this;
}

QString Logger::Stream::message() const
{
    return m_message;
}

} // namespace tvl
