#include "ProgressPrinter.h"

#include <unistd.h>

using tvl::vantor::Progress;

ProgressPrinter::ProgressPrinter(FILE* stream)
    : m_stream(stream)
    , m_terminal(::isatty(::fileno(stream)) == 1)
{
}

QString ProgressPrinter::stageName(Progress::Stage stage)
{
    switch (stage) {
    case Progress::Idle: return QStringLiteral("done");
    case Progress::Checking: return QStringLiteral("checking");
    case Progress::Downloading: return QStringLiteral("downloading");
    case Progress::Patching: return QStringLiteral("assembling");
    case Progress::Verifying: return QStringLiteral("verifying");
    case Progress::Finishing: return QStringLiteral("finishing");
    case Progress::Publishing: return QStringLiteral("publishing");
    }
    return {};
}

QString ProgressPrinter::bytes(double value)
{
    if (value >= 1e9)
        return QString::number(value / 1e9, 'f', 2) + QStringLiteral(" GB");
    if (value >= 1e6)
        return QString::number(value / 1e6, 'f', 1) + QStringLiteral(" MB");
    if (value >= 1e3)
        return QString::number(value / 1e3, 'f', 1) + QStringLiteral(" kB");
    return QString::number(qint64(value)) + QStringLiteral(" B");
}

void ProgressPrinter::show(const Progress& progress)
{
    if (progress.stage == Progress::Idle || progress.bytesTotal <= 0)
        return;
    QString text = QStringLiteral("%1 %2 / %3").arg(stageName(progress.stage), bytes(double(progress.bytesDone)),
                                                    bytes(double(progress.bytesTotal)));
    if (progress.bytesPerSecond > 0)
        text += QStringLiteral("  %1/s").arg(bytes(progress.bytesPerSecond));
    if (progress.secondsLeft >= 0)
        text += QStringLiteral("  %1:%2 left").arg(progress.secondsLeft / 60).arg(progress.secondsLeft % 60, 2, 10, QLatin1Char('0'));
    const int percent = int(progress.fraction() * 100.0);
    if (m_terminal) {
        const int width = 30, filled = percent * width / 100;
        const QString bar = QString(filled, QLatin1Char('#')) + QString(width - filled, QLatin1Char(' '));
        std::fprintf(m_stream, "\r\033[K[%s] %3d%% %s", qPrintable(bar), percent, qPrintable(text));
        std::fflush(m_stream);
        m_drawn = true;
        return;
    }
    // Without a terminal: a line when a stage begins, then one a second.
    if (progress.stage != m_lastStage || !m_lastLine.isValid() || m_lastLine.elapsed() >= 1000) {
        std::fprintf(m_stream, "%3d%% %s\n", percent, qPrintable(text));
        std::fflush(m_stream);
        m_lastStage = progress.stage;
        m_lastLine.start();
    }
}

void ProgressPrinter::finish()
{
    if (m_drawn)
        std::fprintf(m_stream, "\r\033[K");
    m_drawn = false;
}
