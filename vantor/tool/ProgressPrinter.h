#pragma once

#include <vantor/VantorTypes.h>

#include <QtCore/QElapsedTimer>
#include <QtCore/QString>

#include <cstdio>

/// Shows an operation's progress: a bar redrawn in place on a terminal, a line a second otherwise.
class ProgressPrinter
{
public:
    explicit ProgressPrinter(FILE* stream);

    void show(const tvl::vantor::Progress& progress);
    /// Ends the bar's line, if one is drawn.
    void finish();

    static QString stageName(tvl::vantor::Progress::Stage stage);
    static QString bytes(double value);

private:
    FILE* m_stream;
    bool m_terminal;
    bool m_drawn = false;
    int m_lastStage = -1;
    QElapsedTimer m_lastLine;
};
