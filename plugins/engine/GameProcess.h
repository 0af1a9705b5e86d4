#pragma once

#include <QtCore/QObject>
#include <QtCore/QStringList>
#include <QtCore/QTimer>

class QSocketNotifier;

/**
 * A game started by the launcher. It runs detached, so that it outlives a launcher that quits
 * meanwhile, and is watched through a pidfd (a descriptor that becomes readable when the process
 * ends), or by polling where the kernel has none.
 */
class GameProcess : public QObject
{
    Q_OBJECT

public:
    explicit GameProcess(QObject* parent = nullptr);
    ~GameProcess() override;

    /// Starts `program` in `directory`; false (with errorString()) when it cannot start.
    bool start(const QString& program, const QStringList& arguments, const QString& directory);
    bool isRunning() const { return m_pid > 0; }
    qint64 pid() const { return m_pid; }
    QString errorString() const { return m_error; }

Q_SIGNALS:
    void ended();

private:
    void poll();
    void stopWatching();

    qint64 m_pid = 0;
    int m_pidfd = -1;
    QSocketNotifier* m_notifier = nullptr;
    QTimer m_poll;
    QString m_error;
};
