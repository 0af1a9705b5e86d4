// A process for tst_runtime: what the crash marker, the restart and the console output do is
// only visible across processes. The scenario comes from RUNTIME_HELPER_SCENARIO; a process
// whose arguments hold "--restart" was started by tv_restart_updater() and only records its
// command line.
#include <libupdater/Updater.h>

#include <basix/AbstractLoggerOutput.h>
#include <basix/Logger.h>
#include <basix/SimpleCommandLineParser.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <memory>
#include <thread>
#include <vector>

using namespace tvl::updater;

namespace {

// Every record on standard error as "LOG <level> <file> <function>: <message>".
class LineOutput : public tvl::AbstractLoggerOutput
{
public:
    void writeLogHeader() override {}
    void write(const QString& message, const QString& file, const QString& function,
               const QString&, int, tvl::Logger::Level level, const QDateTime&, int) override
    {
        const QByteArray line = QStringLiteral("LOG %1 %2 %3: %4\n")
                                    .arg(QString::number(level), file, function, message)
                                    .toUtf8();
        std::fwrite(line.constData(), 1, size_t(line.size()), stderr);
        std::fflush(stderr);
    }
};

void print(const QString& text)
{
    const QByteArray bytes = text.toUtf8() + '\n';
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stdout);
    std::fflush(stdout);
}

QString bit(bool value)
{
    return value ? QStringLiteral("1") : QStringLiteral("0");
}

int recordRestart(int argc, char** argv)
{
    QJsonArray arguments;
    for (int i = 0; i < argc; ++i)
        arguments.append(QString::fromLocal8Bit(argv[i]));
    QFile record(qEnvironmentVariable("RUNTIME_HELPER_RECORD"));
    if (!record.open(QIODevice::WriteOnly | QIODevice::Append))
        return 3;
    record.write(QJsonDocument(arguments).toJson(QJsonDocument::Compact) + '\n');
    return 0;
}

// Arguments: steps run in order, "path=<dir>" or "setup", and last "exit" or "kill".
int crashScenario(std::unique_ptr<QCoreApplication> app)
{
    const QStringList steps = app->arguments().mid(1);
    for (const QString& step : steps) {
        if (step.startsWith(QLatin1String("path="))) {
            tv_set_user_preferences_path(step.mid(5));
        } else if (step == QLatin1String("setup")) {
            const bool ok = tv_setup_crash_handler();
            print(QStringLiteral("setup %1 crashed %2").arg(bit(ok), bit(tv_previous_run_crashed())));
        } else if (step == QLatin1String("kill")) {
            tvl::Logger::instance()->flush();
            std::raise(SIGKILL);
        } else if (step == QLatin1String("exit")) {
            app.reset();
            return 0;
        }
    }
    return 2;
}

// RUNTIME_HELPER_CALLS: lines "<keep 0|1> <argument>..." (arguments split at spaces), one call
// of tv_restart_updater() each; RUNTIME_HELPER_APPLICATION_PATH: the application path.
int restartScenario(std::unique_ptr<QCoreApplication> app)
{
    tv_set_application_path(qEnvironmentVariable("RUNTIME_HELPER_APPLICATION_PATH"));
    const QStringList calls = qEnvironmentVariable("RUNTIME_HELPER_CALLS").split(QLatin1Char('\n'));
    for (const QString& call : calls) {
        QStringList arguments = call.split(QLatin1Char(' '), Qt::SkipEmptyParts);
        const bool keep = arguments.takeFirst() == QLatin1String("1");
        tv_restart_updater(arguments, keep);
    }
    app.reset();
    return 0;
}

int argumentsScenario()
{
    // Many first calls at once must still build one parser.
    constexpr int threadCount = 8;
    std::atomic<bool> go{false};
    std::vector<tvl::SimpleCommandLineParser*> parsers(threadCount, nullptr);
    std::vector<std::thread> threads;
    for (int i = 0; i < threadCount; ++i) {
        threads.emplace_back([&go, &parsers, i] {
            while (!go.load())
                std::this_thread::yield();
            parsers[size_t(i)] = tv_updater_args();
        });
    }
    go = true;
    for (std::thread& thread : threads)
        thread.join();

    bool same = true;
    for (tvl::SimpleCommandLineParser* parser : parsers)
        same = same && parser == parsers.front() && parser == tv_updater_args();
    print(QStringLiteral("same %1").arg(bit(same)));
    print(QStringLiteral("arguments %1").arg(bit(tv_updater_args()->arguments() == QCoreApplication::arguments())));
    print(QStringLiteral("keys %1").arg(tv_updater_args()->keys().join(QLatin1Char(','))));
    print(QStringLiteral("silent %1").arg(bit(tv_updater_args()->hasSwitch(QStringLiteral("silent"), QLatin1Char('s')))));
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    for (int i = 1; i < argc; ++i) {
        if (qstrcmp(argv[i], "--restart") == 0)
            return recordRestart(argc, argv);
    }

    tvl::Logger::instance()->addOutput(new LineOutput, tvl::Logger::TakeOwnership);
    auto app = std::make_unique<QCoreApplication>(argc, argv);
    const QByteArray scenario = qgetenv("RUNTIME_HELPER_SCENARIO");

    if (scenario == "crash")
        return crashScenario(std::move(app));
    if (scenario == "restart")
        return restartScenario(std::move(app));
    if (scenario == "arguments")
        return argumentsScenario();
    if (scenario == "critical") {
        const QStringList arguments = app->arguments();
        tv_display_critical_error(arguments.value(1), arguments.value(2), arguments.value(3));
        return 0;
    }
    if (scenario == "style") {
        print(QStringLiteral("[%1]").arg(tv_system_style()));
        print(QStringLiteral("[%1]").arg(tv_system_style()));
        return 0;
    }
    return 2;
}
