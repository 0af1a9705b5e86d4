#include <libupdater/IciFunctions.h>
#include <libupdater/Updater.h>

#include <basix/AbstractLoggerOutput.h>
#include <basix/ICISettings.h>
#include <basix/Logger.h>
#include <basix/SimpleCommandLineParser.h>

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtCore/QMutex>
#include <QtCore/QProcess>
#include <QtCore/QTemporaryDir>
#include <QtTest/QtTest>

#include <cstdio>
#include <utility>

using namespace tvl::updater;

namespace {

// The test executable runs itself with this variable set to play a sequence of steps in a
// process of its own: command_line_args reads the process's arguments and keeps their names.
const char* const stepsVariable = "TST_ICIFUNCTIONS_STEPS";

struct Record
{
    QString message;
    QString file;
    QString function;
    int line;
    int level;
};

class RecordingOutput : public tvl::AbstractLoggerOutput
{
public:
    void writeLogHeader() override {}
    void write(const QString& message, const QString& file, const QString& function, const QString&,
               int line, tvl::Logger::Level level, const QDateTime&, int) override
    {
        QMutexLocker locker(&m_mutex);
        m_records.append({message, file, function, line, int(level)});
    }

    QList<Record> take()
    {
        tvl::Logger::instance()->flush();
        QMutexLocker locker(&m_mutex);
        return std::exchange(m_records, {});
    }

private:
    QMutex m_mutex;
    QList<Record> m_records;
};

QString luaString(const QString& text)
{
    return QStringLiteral("[==[") + text + QStringLiteral("]==]");
}

// Evaluates `script` from `path` with every function registered; the error text on failure.
bool evaluateScript(const QString& path, const QByteArray& script, QVariantMap* values, QString* error)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(script) != script.size())
        return false;
    file.close();
    tvl::ICISettings settings(path);
    registerIciFunctions(&settings);
    settings.createFunction(QStringLiteral("to_hex"), ici_to_hex);
    settings.createFunction(QStringLiteral("to_base64"), ici_to_base64);
    const bool ok = settings.evaluate(false, false);
    *values = settings.values();
    *error = settings.errorString();
    return ok;
}

// Plays the steps given in the environment: {"script": text} evaluates a script and keeps its
// values, {"arguments": [...]} replaces the updater's parsed command line. Prints the values
// of every script (or {"error": text}) as JSON on standard output.
int playSteps(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    const QJsonArray steps = QJsonDocument::fromJson(qgetenv(stepsVariable)).array();
    QTemporaryDir directory;
    QVariantMap output;
    for (const QJsonValue& step : steps) {
        const QJsonObject object = step.toObject();
        if (object.contains(QStringLiteral("arguments"))) {
            QStringList arguments{QCoreApplication::applicationFilePath()};
            for (const QJsonValue& argument : object.value(QStringLiteral("arguments")).toArray())
                arguments.append(argument.toString());
            *tv_updater_args() = tvl::SimpleCommandLineParser(arguments);
            continue;
        }
        QVariantMap values;
        QString error;
        if (!evaluateScript(directory.filePath(QStringLiteral("child.lua")),
                            object.value(QStringLiteral("script")).toString().toUtf8(), &values, &error)) {
            output = {{QStringLiteral("error"), error}};
            break;
        }
        output.insert(values);
    }
    const QByteArray json = QJsonDocument(QJsonObject::fromVariantMap(output)).toJson(QJsonDocument::Compact);
    std::fwrite(json.constData(), 1, size_t(json.size()), stdout);
    return 0;
}

// Runs the steps in a child process started with `arguments`; its printed values.
QVariantMap runSteps(const QJsonArray& steps, const QStringList& arguments)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QString::fromLatin1(stepsVariable),
                       QString::fromUtf8(QJsonDocument(steps).toJson(QJsonDocument::Compact)));
    QProcess process;
    process.setProcessEnvironment(environment);
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start(QCoreApplication::applicationFilePath(), arguments);
    if (!process.waitForFinished(60'000) || process.exitCode() != 0) {
        process.kill();
        process.waitForFinished();
        return {{QStringLiteral("error"), QStringLiteral("the child process failed")}};
    }
    return QJsonDocument::fromJson(process.readAllStandardOutput()).object().toVariantMap();
}

QJsonObject scriptStep(const QString& script)
{
    return {{QStringLiteral("script"), script}};
}

QJsonObject argumentsStep(const QStringList& arguments)
{
    return {{QStringLiteral("arguments"), QJsonArray::fromStringList(arguments)}};
}

const QString usageOfCommandLineArgs = QStringLiteral(
    "command_line_args expects exactly 2 arguments : command_line_args(filter, format)\n"
    "filter is a regex, capturing the key - format is something like \"--%(name)=%(value)\"");

// The command line of the child processes: options with and without values, in this order.
const QStringList childArguments{QStringLiteral("--game-lang=fr"), QStringLiteral("--game-flag"),
                                 QStringLiteral("--game-region=eu"), QStringLiteral("--game-empty="),
                                 QStringLiteral("positional"), QStringLiteral("--other=x")};

} // namespace

class tst_IciFunctions : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();

    void wrongArgumentCount_data();
    void wrongArgumentCount();
    void results_data();
    void results();
    void locations();
    void print();

    void commandLineArgs_data();
    void commandLineArgs();
    void commandLineArgsKeepsFirstNames();

private:
    QString scriptPath() const { return m_directory.filePath(QStringLiteral("functions.lua")); }

    QTemporaryDir m_directory;
    RecordingOutput m_output;
};

void tst_IciFunctions::initTestCase()
{
    QStandardPaths::setTestModeEnabled(true);
    QVERIFY(m_directory.isValid());
    QFile other(m_directory.filePath(QStringLiteral("other.lua")));
    QVERIFY(other.open(QIODevice::WriteOnly));
    QVERIFY(QDir(m_directory.path()).mkdir(QStringLiteral("sub")));
    tvl::Logger::instance()->addOutput(&m_output);
}

void tst_IciFunctions::cleanupTestCase()
{
    tvl::Logger::instance()->removeOutput(&m_output);
}

void tst_IciFunctions::wrongArgumentCount_data()
{
    QTest::addColumn<QString>("function");
    QTest::addColumn<int>("count");
    QTest::addColumn<QString>("message");

    QTest::newRow("same_paths") << "same_paths" << 1 << "same_paths expects exactly 2 arguments";
    QTest::newRow("data_location") << "data_location" << 1 << "data_location expects exactly 0 argument";
    QTest::newRow("global_data_location") << "global_data_location" << 2
                                          << "global_data_location expects exactly 0 argument";
    QTest::newRow("set_application_name") << "set_application_name" << 0
                                          << "set_application_name expects exactly 1 argument";
    QTest::newRow("file_exists") << "file_exists" << 2 << "file_exists expects exactly 1 argument";
    QTest::newRow("application_path") << "application_path" << 1 << "application_path expects no argument";
    QTest::newRow("print") << "print" << 0 << "application_path expects exactly 1 argument";
    QTest::newRow("compare_versions") << "compare_versions" << 3 << "compare_versions expects exactly 2 arguments";
    QTest::newRow("regex_match") << "regex_match" << 1 << "compare_versions expects exactly 2 arguments";
    QTest::newRow("command_line_args") << "command_line_args" << 1 << usageOfCommandLineArgs;
    QTest::newRow("to_hex") << "to_hex" << 0 << "to_hex expects exactly 1 argument";
    QTest::newRow("to_base64") << "to_base64" << 2 << "to_base64 expects exactly 1 argument";
}

void tst_IciFunctions::wrongArgumentCount()
{
    QFETCH(QString, function);
    QFETCH(int, count);
    QFETCH(QString, message);
    m_output.take();

    QStringList arguments;
    for (int i = 0; i < count; ++i)
        arguments.append(QStringLiteral("\"1.0\""));
    const QString script = QStringLiteral("a = 1\nresult = %1(%2)\n").arg(function, arguments.join(QLatin1Char(',')));
    QVariantMap values;
    QString error;
    QVERIFY(!evaluateScript(scriptPath(), script.toUtf8(), &values, &error));
    QCOMPARE(error, scriptPath() + QStringLiteral(":2: ") + message);
    QVERIFY(m_output.take().isEmpty());
}

void tst_IciFunctions::results_data()
{
    QTest::addColumn<QString>("expression");
    QTest::addColumn<QVariant>("expected");

    const QVariant yes(true);
    const QVariant no(false);
    QTest::newRow("same_paths: one file") << "same_paths('@/functions.lua', '@/sub/../functions.lua')" << yes;
    QTest::newRow("same_paths: two files") << "same_paths('@/functions.lua', '@/other.lua')" << no;
    QTest::newRow("file_exists: yes") << "file_exists('@/other.lua')" << yes;
    QTest::newRow("file_exists: no") << "file_exists('@/missing.lua')" << no;

    QTest::newRow("regex_match: whole text") << "regex_match('a.c', 'abc')" << yes;
    QTest::newRow("regex_match: prefix only") << "regex_match('a', 'abc')" << no;
    QTest::newRow("regex_match: alternatives stay anchored") << "regex_match('x|abc', 'xabc')" << no;
    QTest::newRow("regex_match: dot takes a line break") << "regex_match('a.c', 'a\\nc')" << yes;
    QTest::newRow("regex_match: invalid pattern") << "regex_match('(', '(')" << no;
    QTest::newRow("regex_match: unbalanced pattern") << "regex_match('a)(b', 'a)(b')" << no;

    QTest::newRow("compare_versions: equal") << "compare_versions('3.11.1', '3.11.1')" << QVariant(0);
    QTest::newRow("compare_versions: 1.2 < 1.10") << "compare_versions('1.2', '1.10')" << QVariant(-1);
    QTest::newRow("compare_versions: pre-release") << "compare_versions('1.2-rc1', '1.2')" << QVariant(-1);

    QTest::newRow("to_hex") << "to_hex('Aé')" << QVariant(QStringLiteral("41c3a9"));
    QTest::newRow("to_base64") << "to_base64('héllo')" << QVariant(QStringLiteral("aMOpbGxv"));
}

void tst_IciFunctions::results()
{
    QFETCH(QString, expression);
    QFETCH(QVariant, expected);

    const QString script = QStringLiteral("result = ") + QString(expression).replace(QLatin1Char('@'), m_directory.path());
    QVariantMap values;
    QString error;
    QVERIFY2(evaluateScript(scriptPath(), script.toUtf8(), &values, &error), qPrintable(error));
    const QVariant result = values.value(QStringLiteral("result"));
    // Integers come back from the script as 64-bit numbers.
    if (expected.typeId() == QMetaType::Int)
        expected = QVariant(expected.toLongLong());
    QCOMPARE(result.metaType(), expected.metaType());
    QCOMPARE(result, expected);
}

void tst_IciFunctions::locations()
{
    const QString organization = QCoreApplication::organizationName();
    const QString application = QCoreApplication::applicationName();
    QCoreApplication::setOrganizationName(QStringLiteral("tvl-org"));
    QCoreApplication::setApplicationName(QStringLiteral("tst-app"));
    const QString generic = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);

    const QByteArray script = "data = data_location()\n"
                              "global = global_data_location()\n"
                              "path = application_path()\n"
                              "set_application_name('renamed app')\n";
    QVariantMap values;
    QString error;
    const bool ok = evaluateScript(scriptPath(), script, &values, &error);
    const QString renamedTo = QCoreApplication::applicationName();
    QCoreApplication::setOrganizationName(organization);
    QCoreApplication::setApplicationName(application);
    QVERIFY2(ok, qPrintable(error));

    // The application's own data directory lies below the organisation's.
    QCOMPARE(values.value(QStringLiteral("data")).toString(), generic + QStringLiteral("/tvl-org"));
    QCOMPARE(renamedTo, QStringLiteral("renamed app"));
    QCOMPARE(values.value(QStringLiteral("global")).toString(), generic);

    const QString path = values.value(QStringLiteral("path")).toString();
    QVERIFY2(path.endsWith(QStringLiteral("/tst_icifunctions")), qPrintable(path));
    QVERIFY(QFileInfo(path).isFile());
}

void tst_IciFunctions::print()
{
    m_output.take();
    QVariantMap values;
    QString error;
    QVERIFY2(evaluateScript(scriptPath(), "a = 1\n\nprint('hello ' .. a)\n", &values, &error), qPrintable(error));
    const QList<Record> records = m_output.take();
    QCOMPARE(records.size(), 1);
    QCOMPARE(records.first().message, QStringLiteral("hello 1"));
    QCOMPARE(records.first().file, scriptPath());
    QVERIFY(records.first().function.isNull());
    QCOMPARE(records.first().line, 3);
    QCOMPARE(records.first().level, 2);
}

void tst_IciFunctions::commandLineArgs_data()
{
    QTest::addColumn<QString>("filter");
    QTest::addColumn<QString>("format");
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("capture group, options without a value skipped")
        << "game-(.*)" << "--%(name)=%(value)" << QStringList{"--lang=fr", "--region=eu", "--empty="};
    QTest::newRow("no capture group: the whole name")
        << "game-.*" << "%(name):%(value)" << QStringList{"game-lang:fr", "game-region:eu", "game-empty:"};
    QTest::newRow("only the first group")
        << "(game)-(lang|region)" << "%(name)=%(value)" << QStringList{"game=fr", "game=eu"};
    QTest::newRow("whole names only") << "game" << "--%(name)=%(value)" << QStringList{};
    QTest::newRow("every option with a value")
        << "(.*)" << "%(value)%(name)"
        << QStringList{"frgame-lang", "eugame-region", "game-empty", "xother"};
    QTest::newRow("value placeholder missing") << "(.*)" << "--%(name)" << QStringList{};
    QTest::newRow("name placeholder missing") << "(.*)" << "--x=%(value)" << QStringList{};
    QTest::newRow("invalid filter") << "game-(" << "--%(name)=%(value)" << QStringList{};
}

void tst_IciFunctions::commandLineArgs()
{
    QFETCH(QString, filter);
    QFETCH(QString, format);
    QFETCH(QStringList, expected);

    const QString script = QStringLiteral("result = command_line_args(%1, %2)\n")
                               .arg(luaString(filter), luaString(format));
    const QVariantMap output = runSteps({scriptStep(script)}, childArguments);
    QVERIFY2(!output.contains(QStringLiteral("error")), qPrintable(output.value(QStringLiteral("error")).toString()));
    QCOMPARE(output.value(QStringLiteral("result")).toStringList(), expected);
}

void tst_IciFunctions::commandLineArgsKeepsFirstNames()
{
    const QString call = QStringLiteral("command_line_args('game-(.*)', '--%(name)=%(value)')");
    const QJsonArray steps{
        // Calls that stop before the option names are read leave them unread.
        scriptStep(QStringLiteral("early = command_line_args('game-(', '--%(name)=%(value)')")),
        scriptStep(QStringLiteral("early2 = command_line_args('game-(.*)', '--%(name)')")),
        argumentsStep({QStringLiteral("--game-late=1"), QStringLiteral("--game-lang=de")}),
        scriptStep(QStringLiteral("first = ") + call),
        // From now on only the names read above count; their values are still looked up.
        argumentsStep({QStringLiteral("--game-new=2"), QStringLiteral("--game-lang=it")}),
        scriptStep(QStringLiteral("second = ") + call)};
    const QVariantMap output = runSteps(steps, childArguments);
    QVERIFY2(!output.contains(QStringLiteral("error")), qPrintable(output.value(QStringLiteral("error")).toString()));
    QCOMPARE(output.value(QStringLiteral("first")).toStringList(),
             (QStringList{QStringLiteral("--late=1"), QStringLiteral("--lang=de")}));
    QCOMPARE(output.value(QStringLiteral("second")).toStringList(), QStringList{QStringLiteral("--lang=it")});
}

int main(int argc, char** argv)
{
    if (qEnvironmentVariableIsSet(stepsVariable))
        return playSteps(argc, argv);
    QCoreApplication application(argc, argv);
    tst_IciFunctions test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}

#include "tst_icifunctions.moc"
