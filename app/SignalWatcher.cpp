#include "SignalWatcher.h"

#include <basix/Logger.h>

#include <QtCore/QSocketNotifier>

#include <csignal>
#include <sys/socket.h>
#include <unistd.h>

namespace {

// The write end is used from the signal handler, where only async-signal-safe calls are allowed.
int signalPipe[2] = {-1, -1};

void onSignal(int signal)
{
    const unsigned char number = static_cast<unsigned char>(signal);
    [[maybe_unused]] const ssize_t written = ::write(signalPipe[1], &number, 1);
}

} // namespace

SignalWatcher::SignalWatcher(QObject* parent)
    : QObject(parent)
{
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, signalPipe) != 0) {
        TVL_LOG(tvl::Logger::Warning) << "Cannot watch for termination signals";
        return;
    }
    m_notifier = new QSocketNotifier(signalPipe[0], QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &SignalWatcher::readSignal);

    struct sigaction action = {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);
}

SignalWatcher::~SignalWatcher()
{
    ::signal(SIGINT, SIG_DFL);
    ::signal(SIGTERM, SIG_DFL);
    if (signalPipe[0] >= 0) {
        ::close(signalPipe[0]);
        ::close(signalPipe[1]);
        signalPipe[0] = signalPipe[1] = -1;
    }
}

void SignalWatcher::readSignal()
{
    unsigned char number = 0;
    if (::read(signalPipe[0], &number, 1) != 1)
        return;
    if (m_stopping) {
        // Asked twice: the user does not want to wait for the plugins any more.
        ::_exit(128 + number);
    }
    m_stopping = true;
    TVL_LOG(tvl::Logger::Notice) << "Stopping on signal" << int(number);
    Q_EMIT stopRequested(number);
}
