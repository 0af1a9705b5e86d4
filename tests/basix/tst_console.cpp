#include <basix/Console.h>

#include <QtTest/QtTest>

#include <cerrno>
#include <poll.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>

using tvl::Console;

namespace {

// The test runs itself again with this variable set to a scenario name, and looks at what the
// child wrote: printing is only observable from outside the process.
constexpr char scenarioVariable[] = "TST_CONSOLE_SCENARIO";

int runScenario(const QByteArray& scenario)
{
    if (scenario == "mixed") {
        Console::pprint(QStringLiteral("Grüße ✓\n"));
        Console::pprint(QStringLiteral("no line break"), Console::StandardOutput);
        Console::pprint(QStringLiteral(" + more"), Console::StandardOutput, Console::DefaultColor, Console::NoStyle);
        Console::pprint(QStringLiteral("Fehler ✗\n"), Console::StandardError);
        Console::pprint(QStringLiteral("coloured"), Console::StandardOutput, Console::Red,
                        Console::Bold | Console::Underline);
        Console::pprint(QStringLiteral(" bold"), Console::StandardError, Console::DefaultColor, Console::Bold);
        Console::pprint(QString());
        return 0;
    }
    return 2;
}

bool terminalsAvailable()
{
    int master = -1;
    int slave = -1;
    if (::openpty(&master, &slave, nullptr, nullptr, nullptr) != 0)
        return false;
    ::close(master);
    ::close(slave);
    return true;
}

struct Captured
{
    QByteArray out;
    QByteArray err;
};

/// Runs a scenario in a child whose standard output is a pipe or, with `terminal`, a
/// pseudo-terminal; NO_COLOR is unset when `noColor` is null.
Captured runChild(const QByteArray& scenario, bool terminal, const QByteArray& noColor)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QString::fromLatin1(scenarioVariable), QString::fromLatin1(scenario));
    environment.remove(QStringLiteral("NO_COLOR"));
    if (!noColor.isNull())
        environment.insert(QStringLiteral("NO_COLOR"), QString::fromLatin1(noColor));

    QProcess process;
    process.setProcessEnvironment(environment);
    int master = -1;
    int slave = -1;
    if (terminal) {
        if (::openpty(&master, &slave, nullptr, nullptr, nullptr) != 0)
            qFatal("openpty: %s", strerror(errno));
        termios attributes;
        ::tcgetattr(slave, &attributes);
        ::cfmakeraw(&attributes); // no "\n" to "\r\n" translation
        ::tcsetattr(slave, TCSANOW, &attributes);
        process.setChildProcessModifier([slave] { ::dup2(slave, STDOUT_FILENO); });
    }
    process.start(QCoreApplication::applicationFilePath(), {});

    Captured captured;
    if (terminal) {
        ::close(slave);
        QDeadlineTimer deadline(60'000);
        // The child may fill the terminal's small buffer, so it is read while the child runs;
        // reading fails with EIO once the child has closed its end.
        while (!deadline.hasExpired()) {
            pollfd readable {master, POLLIN, 0};
            if (::poll(&readable, 1, 100) <= 0)
                continue;
            char buffer[4096];
            const ssize_t size = ::read(master, buffer, sizeof buffer);
            if (size <= 0 && errno != EINTR && errno != EAGAIN)
                break;
            if (size > 0)
                captured.out.append(buffer, size);
        }
        ::close(master);
    }
    if (!process.waitForFinished(60'000) || process.exitStatus() != QProcess::NormalExit
        || process.exitCode() != 0)
        qWarning("child failed: %d %s", process.exitCode(), process.readAllStandardError().constData());
    if (!terminal)
        captured.out = process.readAllStandardOutput();
    captured.err = process.readAllStandardError();
    return captured;
}

} // namespace

class TestConsole : public QObject
{
    Q_OBJECT

private slots:
    void exactBytes_data();
    void exactBytes();
};

void TestConsole::exactBytes_data()
{
    QTest::addColumn<bool>("terminal");
    QTest::addColumn<QByteArray>("noColor");
    QTest::addColumn<QByteArray>("out");
    QTest::addColumn<QByteArray>("err");

    const QByteArray plain = QStringLiteral("Grüße ✓\nno line break + morecoloured").toUtf8();
    const QByteArray coloured = QStringLiteral("Grüße ✓\nno line break + more").toUtf8()
        + "\x1b[1;4;31mcoloured\x1b[0m";
    // Standard error stays a pipe throughout, so it is never coloured.
    const QByteArray err = QStringLiteral("Fehler ✗\n bold").toUtf8();

    QTest::newRow("pipe") << false << QByteArray() << plain << err;
    QTest::newRow("pipe, NO_COLOR") << false << QByteArray("1") << plain << err;
    QTest::newRow("terminal") << true << QByteArray() << coloured << err;
    QTest::newRow("terminal, NO_COLOR") << true << QByteArray("1") << plain << err;
    QTest::newRow("terminal, empty NO_COLOR") << true << QByteArray("") << coloured << err;
}

void TestConsole::exactBytes()
{
    QFETCH(bool, terminal);
    QFETCH(QByteArray, noColor);
    QFETCH(QByteArray, out);
    QFETCH(QByteArray, err);
    if (terminal && !terminalsAvailable())
        QSKIP("no pseudo-terminals here");

    const Captured captured = runChild("mixed", terminal, noColor);
    QCOMPARE(captured.out, out);
    QCOMPARE(captured.err, err);
}

int main(int argc, char** argv)
{
    const QByteArray scenario = qgetenv(scenarioVariable);
    if (!scenario.isEmpty())
        return runScenario(scenario);

    QCoreApplication app(argc, argv);
    TestConsole test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_console.moc"
