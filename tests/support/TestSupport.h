#pragma once

// Small helpers shared by the tests: files, child processes and tests that run themselves
// again as a child with a scenario.

#include <QtCore/QByteArray>
#include <QtCore/QCoreApplication>
#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QProcess>
#include <QtCore/QStringList>

namespace testsupport {

/// Writes `content` to `path`, creating missing directories; returns the absolute path.
inline QString writeFile(const QString& path, const QByteArray& content)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(content) != content.size())
        qFatal("cannot write %s", qPrintable(path));
    return QFileInfo(path).absoluteFilePath();
}

inline QByteArray readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

struct ChildResult
{
    bool finished = false;           ///< false when it did not end within the time-out
    QProcess::ExitStatus status = QProcess::CrashExit;
    int exitCode = -1;
    QByteArray out;
    QByteArray err;

    bool exitedWith(int code) const { return finished && status == QProcess::NormalExit && exitCode == code; }
};

/**
 * Runs `program` with `arguments` and the environment of this process changed by
 * `environment` ("NAME=value" sets, "NAME" alone removes), feeding it `input`, and waits for it.
 */
inline ChildResult runProcess(const QString& program, const QStringList& arguments,
                              const QStringList& environment = {}, const QByteArray& input = {},
                              int timeoutMs = 60'000)
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    for (const QString& entry : environment) {
        const qsizetype equals = entry.indexOf(QLatin1Char('='));
        if (equals < 0)
            env.remove(entry);
        else
            env.insert(entry.left(equals), entry.mid(equals + 1));
    }
    QProcess process;
    process.setProcessEnvironment(env);
    process.start(program, arguments);
    ChildResult result;
    if (!process.waitForStarted(timeoutMs))
        return result;
    process.write(input);
    process.closeWriteChannel();
    result.finished = process.waitForFinished(timeoutMs);
    if (!result.finished) {
        process.kill();
        process.waitForFinished();
    }
    result.status = process.exitStatus();
    result.exitCode = process.exitCode();
    result.out = process.readAllStandardOutput();
    result.err = process.readAllStandardError();
    return result;
}

/// The environment variable that tells a test executable to run a scenario instead of its tests.
constexpr char ScenarioVariable[] = "TEST_SCENARIO";

/// Runs this test executable again as a child that plays `scenario` (see TEST_MAIN_WITH_SCENARIOS).
inline ChildResult runScenario(const QString& scenario, const QStringList& arguments = {},
                               const QStringList& environment = {}, const QByteArray& input = {},
                               int timeoutMs = 60'000)
{
    QStringList env = environment;
    env.append(QString::fromLatin1(ScenarioVariable) + QLatin1Char('=') + scenario);
    return runProcess(QCoreApplication::applicationFilePath(), arguments, env, input, timeoutMs);
}

} // namespace testsupport

/**
 * main() of a test that also plays scenarios in child processes: with TEST_SCENARIO set it
 * returns `runner(scenario, argc, argv)` (which creates its own application object), otherwise
 * it runs the Qt Test class `TestClass` in an application of type `AppType`.
 */
#define TEST_MAIN_WITH_SCENARIOS(TestClass, AppType, runner)                   \
    int main(int argc, char** argv)                                           \
    {                                                                         \
        const QByteArray scenario = qgetenv(testsupport::ScenarioVariable);   \
        if (!scenario.isEmpty())                                              \
            return runner(scenario, argc, argv);                              \
        AppType application(argc, argv);                                      \
        TestClass test;                                                       \
        return QTest::qExec(&test, argc, argv);                               \
    }
