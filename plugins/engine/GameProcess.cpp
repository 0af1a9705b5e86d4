#include "GameProcess.h"

#include <QtCore/QFileInfo>
#include <QtCore/QProcess>
#include <QtCore/QSocketNotifier>

#include <cerrno>
#include <csignal>

#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr int PollIntervalMs = 1000;

int openPidfd(qint64 pid)
{
#ifdef SYS_pidfd_open
    return int(::syscall(SYS_pidfd_open, pid_t(pid), 0));
#else
    Q_UNUSED(pid)
    errno = ENOSYS;
    return -1;
#endif
}

} // namespace

GameProcess::GameProcess(QObject* parent)
    : QObject(parent)
{
    m_poll.setInterval(PollIntervalMs);
    connect(&m_poll, &QTimer::timeout, this, &GameProcess::poll);
}

GameProcess::~GameProcess()
{
    stopWatching();
}

bool GameProcess::start(const QString& program, const QStringList& arguments, const QString& directory)
{
    const QFileInfo file(program);
    if (!file.isFile() || !file.isExecutable()) {
        m_error = tr("%1 is not an executable file").arg(program);
        return false;
    }
    QProcess process;
    process.setProgram(program);
    process.setArguments(arguments);
    process.setWorkingDirectory(directory);
    process.setStandardInputFile(QProcess::nullDevice());
    if (!process.startDetached(&m_pid) || m_pid <= 0) {
        m_error = tr("%1 cannot be started: %2").arg(program, process.errorString());
        m_pid = 0;
        return false;
    }
    m_pidfd = openPidfd(m_pid);
    if (m_pidfd >= 0) {
        m_notifier = new QSocketNotifier(m_pidfd, QSocketNotifier::Read, this);
        connect(m_notifier, &QSocketNotifier::activated, this, [this] {
            stopWatching();
            Q_EMIT ended();
        });
    } else {
        m_poll.start();
    }
    return true;
}

void GameProcess::poll()
{
    // The game is no child of ours (it was started detached): it is gone once no process has its id.
    if (m_pid > 0 && (::kill(pid_t(m_pid), 0) == 0 || errno == EPERM))
        return;
    stopWatching();
    Q_EMIT ended();
}

void GameProcess::stopWatching()
{
    m_poll.stop();
    delete m_notifier;
    m_notifier = nullptr;
    if (m_pidfd >= 0)
        ::close(m_pidfd);
    m_pidfd = -1;
    m_pid = 0;
}
