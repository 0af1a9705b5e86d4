#include <basix/Console.h>

#include <TestSupport.h>

#include <QtTest/QtTest>

#include <poll.h>
#include <pty.h>
#include <unistd.h>

using tvl::Console;

// Child: prints to pipes, standard output to a pseudo-terminal in "terminal" (copied to the pipe).
static int printScenario(const QByteArray& scenario, int, char**)
{
    int master = -1, terminal = -1;
    FILE* pipe = ::fdopen(::dup(STDOUT_FILENO), "w");
    if (scenario == "terminal" && (::openpty(&master, &terminal, nullptr, nullptr, nullptr) != 0 || ::dup2(terminal, 1) < 0))
        return 77;
    Console::pprint("Grüße ✓\nno line break");
    Console::pprint("Fehler ✗\n", Console::StandardError);
    Console::pprint("coloured", Console::StandardOutput, Console::Red, Console::Bold | Console::Underline);
    Console::pprint(" bold", Console::StandardError, Console::DefaultColor, Console::Bold);
    pollfd readable{master, POLLIN, 0};
    char buffer[4096];
    for (ssize_t size = 0; master >= 0 && ::poll(&readable, 1, 200) > 0 && (size = ::read(master, buffer, sizeof buffer)) > 0;)
        std::fwrite(buffer, 1, size_t(size), pipe);
    return 0;
}

class TestConsole : public QObject
{
    Q_OBJECT

private slots:
    void exactBytes()
    {
        const QByteArray plain = "Grüße ✓\nno line breakcoloured", coloured = "Grüße ✓\nno line break\x1b[1;4;31mcoloured\x1b[0m";
        // Scenario, NO_COLOR ("-" leaves it unset), standard output byte for byte.
        const std::tuple<const char*, QString, QByteArray> rows[] = {
            {"pipe", "-", plain}, {"terminal", "-", coloured}, {"terminal", "1", plain}, {"terminal", "", coloured}};
        for (const auto& [scenario, noColor, out] : rows) {
            auto child = testsupport::runScenario(scenario, {}, {noColor == "-" ? "NO_COLOR" : "NO_COLOR=" + noColor});
            if (child.exitedWith(77)) QSKIP("no pseudo-terminals here");
            QVERIFY(child.exitedWith(0));
            QCOMPARE(child.out.replace("\r\n", "\n"), out); // the terminal's own line ends
            QCOMPARE(child.err, "Fehler ✗\n bold");
        }
    }
};

TEST_MAIN_WITH_SCENARIOS(TestConsole, QCoreApplication, printScenario)
#include "tst_console.moc"
