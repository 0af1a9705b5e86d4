#include "StandardErrorLoggerOutput.h"

#include "StandardErrorWriter_p.h"

namespace tvl {

namespace {

// Beyond this a batch is written out before it ends, so that a burst does not pile up in memory.
constexpr qsizetype MaximumBuffer = 64 * 1024;

} // namespace

class StandardErrorLoggerOutputPrivate
{
public:
    void writeOut();

    QByteArray buffer;
};

void StandardErrorLoggerOutputPrivate::writeOut()
{
    detail::writeToStandardError(buffer);
    buffer.resize(0); // keeps the capacity for the next batch
}

StandardErrorLoggerOutput::StandardErrorLoggerOutput()
    : d(new StandardErrorLoggerOutputPrivate)
{
}

StandardErrorLoggerOutput::~StandardErrorLoggerOutput()
{
    d->writeOut();
}

void StandardErrorLoggerOutput::writeLogHeader()
{
}

void StandardErrorLoggerOutput::write(const QString& message, const QString& file,
                                      const QString& function, const QString& threadName,
                                      int line, Logger::Level level, const QDateTime& time,
                                      int threadId)
{
    QString text = formatRecord(message, file, function, threadName, line, level, time, threadId);
    text += QLatin1Char('\n');
    d->buffer += text.toUtf8();
    if (d->buffer.size() >= MaximumBuffer)
        d->writeOut();
}

void StandardErrorLoggerOutput::flush()
{
    d->writeOut();
}

} // namespace tvl
