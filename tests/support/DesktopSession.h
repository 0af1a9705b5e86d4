#pragma once

// The parts of a desktop session that a test starts for itself: a session bus, an X server and
// a tray host. Each is a real child process, stopped (SIGTERM) when its object goes.

#include <TestSupport.h>

#include <QtCore/QDeadlineTimer>
#include <QtCore/QProcess>
#include <QtCore/QStandardPaths>
#include <QtCore/QTemporaryDir>

namespace testsupport {

/// A child process that the object stops and waits for.
class ChildProcess
{
public:
    ChildProcess() = default;
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    ~ChildProcess() { stop(); }

    QProcess process;

    bool running() const { return process.state() == QProcess::Running; }

    /// The first line of its standard output, within `timeoutMs`; empty if none came.
    QByteArray readLine(int timeoutMs = 10'000)
    {
        for (const QDeadlineTimer deadline(timeoutMs); !process.canReadLine() && !deadline.hasExpired();) {
            if (!process.waitForReadyRead(int(qMax<qint64>(1, deadline.remainingTime()))) && !running())
                break;
        }
        return process.canReadLine() ? process.readLine().trimmed() : QByteArray();
    }

    void stop()
    {
        if (process.state() == QProcess::NotRunning)
            return;
        process.terminate();
        if (!process.waitForFinished(5000)) {
            process.kill();
            process.waitForFinished();
        }
    }
};

/**
 * A session bus of the test's own: dbus-daemon with a configuration that allows everything and
 * activates no service, so that only what the test registers is there.
 */
class SessionBus
{
public:
    /// Starts the bus; false (see error()) when dbus-daemon cannot run.
    bool start()
    {
        const QString program = QStandardPaths::findExecutable(QStringLiteral("dbus-daemon"));
        if (program.isEmpty())
            return fail(QStringLiteral("dbus-daemon is not installed"));
        const QString config = writeFile(m_dir.filePath(QStringLiteral("session.conf")), QByteArrayLiteral(
            "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
            " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
            "<busconfig><type>session</type><listen>unix:tmpdir=/tmp</listen><auth>EXTERNAL</auth>\n"
            "<policy context=\"default\"><allow send_destination=\"*\" eavesdrop=\"true\"/>"
            "<allow eavesdrop=\"true\"/><allow own=\"*\"/></policy></busconfig>\n"));
        m_daemon.process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        m_daemon.process.start(program, {QStringLiteral("--config-file=") + config, QStringLiteral("--nofork"),
                                         QStringLiteral("--nopidfile"), QStringLiteral("--print-address=1")});
        m_address = QString::fromUtf8(m_daemon.readLine());
        return !m_address.isEmpty() || fail(QStringLiteral("dbus-daemon printed no address"));
    }

    QString address() const { return m_address; }
    QString error() const { return m_error; }

private:
    bool fail(const QString& error)
    {
        m_error = error;
        return false;
    }

    QTemporaryDir m_dir;
    ChildProcess m_daemon;
    QString m_address;
    QString m_error;
};

/// An X server (Xvfb) on a display number it picks itself, and on demand a tray host (trayer).
class VirtualDisplay
{
public:
    /// Starts the X server; false (see error()) when Xvfb cannot run.
    bool start()
    {
        const QString program = QStandardPaths::findExecutable(QStringLiteral("Xvfb"));
        if (program.isEmpty())
            return fail(QStringLiteral("Xvfb is not installed"));
        m_server.process.setProcessChannelMode(QProcess::SeparateChannels);
        m_server.process.start(program, {QStringLiteral("-displayfd"), QStringLiteral("1"), QStringLiteral("-screen"),
                                         QStringLiteral("0"), QStringLiteral("1280x800x24"), QStringLiteral("-nolisten"),
                                         QStringLiteral("tcp")});
        const QByteArray number = m_server.readLine();
        if (number.isEmpty())
            return fail(QStringLiteral("Xvfb did not start: ") + QString::fromLocal8Bit(m_server.process.readAllStandardError()));
        m_display = QLatin1Char(':') + QString::fromLatin1(number);
        return true;
    }

    /// Starts trayer on the display, which then has a system tray; false (see error()) when it cannot run.
    bool startTray()
    {
        const QString program = QStandardPaths::findExecutable(QStringLiteral("trayer"));
        if (program.isEmpty())
            return fail(QStringLiteral("trayer is not installed"));
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("DISPLAY"), m_display);
        m_tray.process.setProcessEnvironment(environment);
        m_tray.process.setProcessChannelMode(QProcess::ForwardedChannels);
        m_tray.process.start(program, {QStringLiteral("--expand"), QStringLiteral("false"), QStringLiteral("--widthtype"),
                                       QStringLiteral("request")});
        return m_tray.process.waitForStarted() || fail(QStringLiteral("trayer did not start"));
    }

    QString display() const { return m_display; }
    QString error() const { return m_error; }

private:
    bool fail(const QString& error)
    {
        m_error = error;
        return false;
    }

    ChildProcess m_server;
    ChildProcess m_tray;
    QString m_display;
    QString m_error;
};

} // namespace testsupport
