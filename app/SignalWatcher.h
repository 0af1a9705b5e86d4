#pragma once

#include <QtCore/QObject>

class QSocketNotifier;

/**
 * Turns SIGINT and SIGTERM into the signal stopRequested() on the main thread, so that a
 * launcher asked to stop shuts its plugins down in order (and is not taken for a crashed one
 * at its next start). A second signal while stopping ends the process at once.
 */
class SignalWatcher : public QObject
{
    Q_OBJECT

public:
    explicit SignalWatcher(QObject* parent = nullptr);
    ~SignalWatcher() override;

Q_SIGNALS:
    void stopRequested(int signal);

private:
    void readSignal();

    QSocketNotifier* m_notifier = nullptr;
    bool m_stopping = false;
};
