#include <libupdater/IciFunctions.h>
#include <libupdater/Updater.h>

#include <basix/ICISettings.h>
#include <basix/SimpleCommandLineParser.h>

#include <LogCapture.h>
#include <TestSupport.h>

#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtCore/QTemporaryDir>
#include <QtTest/QtTest>

using namespace tvl::updater;

namespace {

// Evaluates `script`, named `path`, with every function registered; the error text on failure.
QString evaluate(const QString& path, const QByteArray& script, QVariantMap* values)
{
    tvl::ICISettings settings(path, script);
    registerIciFunctions(&settings);
    settings.createFunction("to_hex", ici_to_hex);
    settings.createFunction("to_base64", ici_to_base64);
    // Gives the updater a new command line, for the child process.
    settings.createFunction("replace_args", [](tvl::ICISettingsContext* context) {
        const QStringList arguments = QVariant(context->args()).toStringList();
        *tv_updater_args() = tvl::SimpleCommandLineParser(QStringList{"program"} + arguments);
        return QVariant();
    });
    const bool ok = settings.evaluate();
    *values = settings.values();
    return ok ? QString() : settings.errorString();
}

// The child: evaluates the script SCRIPT and prints its values as JSON.
int scriptScenario(const QByteArray&, int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    QVariantMap values;
    const QString error = evaluate("/child.lua", qgetenv("SCRIPT"), &values);
    const QJsonDocument json(QJsonObject::fromVariantMap(values));
    QTextStream(stdout) << (error.isNull() ? json.toJson() : error.toUtf8());
    return error.isNull() ? 0 : 1;
}

// Notes the line of the last record too.
struct LineCapture : LogCapture
{
    int line = 0;
    void write(const QString& message, const QString& file, const QString& function, const QString& context, int line,
               tvl::Logger::Level level, const QDateTime& time, int id) override
    {
        LogCapture::write(message, file, function, context, this->line = line, level, time, id);
    }
};

} // namespace

class tst_IciFunctions : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    const QString m_script = m_dir.filePath("f.lua");

private slots:
    void initTestCase()
    {
        QStandardPaths::setTestModeEnabled(true);
        testsupport::writeFile(m_dir.filePath("sub/other.lua"), "a = 1\n");
        // Options with and without values, in this order; command_line_args reads their names once.
        const QString arguments = "program --game-lang=fr --game-flag --game-region=eu --game-empty= positional";
        *tv_updater_args() = tvl::SimpleCommandLineParser((arguments + " --other=x").split(' '));
    }

    // "@" stands for the test's directory.
    void calls_data()
    {
        QTest::addColumn<QString>("call");
        QTest::addColumn<QString>("expected"); // "<type>:<result>", or the error

        const auto row = [](const char* call, const char* expected) { QTest::newRow(call) << call << expected; };
        row("same_paths(1)", "@/f.lua:2: same_paths expects exactly 2 arguments");
        row("data_location(1)", "@/f.lua:2: data_location expects exactly 0 argument");
        row("global_data_location(1, 2)", "@/f.lua:2: global_data_location expects exactly 0 argument");
        row("set_application_name()", "@/f.lua:2: set_application_name expects exactly 1 argument");
        row("file_exists(1, 2)", "@/f.lua:2: file_exists expects exactly 1 argument");
        row("application_path(1)", "@/f.lua:2: application_path expects no argument");
        row("print()", "@/f.lua:2: application_path expects exactly 1 argument");
        row("compare_versions(1, 2, 3)", "@/f.lua:2: compare_versions expects exactly 2 arguments");
        row("regex_match(1)", "@/f.lua:2: compare_versions expects exactly 2 arguments");
        row("command_line_args(1)",
            "@/f.lua:2: command_line_args expects exactly 2 arguments : command_line_args(filter, format)\n"
            "filter is a regex, capturing the key - format is something like \"--%(name)=%(value)\"");
        row("to_hex()", "@/f.lua:2: to_hex expects exactly 1 argument");
        row("to_base64(1, 2)", "@/f.lua:2: to_base64 expects exactly 1 argument");

        row("same_paths('@/sub/other.lua', '@/sub/../sub/other.lua')", "bool:true");
        row("same_paths('@/sub/other.lua', '@/sub')", "bool:false");
        row("file_exists('@/sub/other.lua')", "bool:true");
        row("file_exists('@/missing.lua')", "bool:false");
        row("regex_match('a', 'abc')", "bool:false");
        row("regex_match('x|abc', 'xabc')", "bool:false");
        row("regex_match('a.c', 'a\\nc')", "bool:true");
        row("regex_match('(', '(')", "bool:false");
        row("regex_match('a)(b', 'ab')", "bool:false");
        row("compare_versions('3.11.1', '3.11.1')", "qlonglong:0");
        row("compare_versions('1.2', '1.10')", "qlonglong:-1");
        row("to_hex('A\u00e9')", "QString:41c3a9");
        row("to_base64('h\u00e9llo')", "QString:aMOpbGxv");
        // Options without a value are skipped; the first group names the option, else the whole name.
        row("command_line_args('game-(.*)', '--%(name)=%(value)')", "QVariantList:--lang=fr --region=eu --empty=");
        row("command_line_args('game-.*', '%(name):%(value)')", "QVariantList:game-lang:fr game-region:eu game-empty:");
        row("command_line_args('(game)-(lang|region)', '%(value)%(name)')", "QVariantList:frgame eugame");
        row("command_line_args('game', '--%(name)=%(value)')", "QVariantList:");
        row("command_line_args('(.*)', '--%(name)')", "QVariantList:");
        row("command_line_args('(.*)', '--x=%(value)')", "QVariantList:");
        row("command_line_args('game-(', '--%(name)=%(value)')", "QVariantList:");
    }

    void calls()
    {
        QFETCH(QString, call);
        QFETCH(QString, expected);
        LogCapture log;
        QVariantMap values;
        const QString error = evaluate(m_script, "a = 1\nresult = " + call.replace('@', m_dir.path()).toUtf8(),
                                       &values);
        const QVariant result = values.value("result");
        const QString text = result.typeId() == QMetaType::QVariantList ? result.toStringList().join(' ')
                                                                         : result.toString();
        QCOMPARE(error.isNull() ? result.typeName() + (':' + text) : error, expected.replace('@', m_dir.path()));
        QVERIFY(log.take().isEmpty());
    }

    void applicationFunctions()
    {
        QCoreApplication::setOrganizationName("tvl-org");
        const QString generic = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
        LineCapture log;
        QVariantMap values;
        QCOMPARE(evaluate(m_script, "data = data_location()\nglobal = global_data_location()\n"
                          "path = application_path()\nset_application_name('renamed app')\nprint('hello ' .. 1)\n",
                          &values), QString());

        // The application's own data directory lies below the organisation's.
        QCOMPARE(values.value("data").toString(), generic + "/tvl-org");
        QCOMPARE(values.value("global").toString(), generic);
        QCOMPARE(values.value("path").toString(), QCoreApplication::applicationFilePath());
        QCOMPARE(QCoreApplication::applicationName(), QString("renamed app"));
        const QList<LogCapture::Record> records = log.take();
        QCOMPARE(records.size(), 1);
        QCOMPARE(QString("%1 %2:%3 ").arg(records[0].level).arg(records[0].file).arg(log.line) + records[0].message,
                 QString("2 %1:5 hello 1").arg(m_script));
        QCOMPARE(records[0].function, QString());
    }

    // In a process of its own, which has not read the option names yet.
    void commandLineArgsKeepsFirstNames()
    {
        const auto child = testsupport::runScenario("script", {"--game-lang=fr"}, {"SCRIPT="
            // Calls that stop before the option names are read leave them unread.
            "early = command_line_args('game-(', '--%(name)=%(value)')\n"
            "early2 = command_line_args('game-(.*)', '--%(name)')\n"
            "replace_args('--game-late=1', '--game-lang=de')\n"
            "first = command_line_args('game-(.*)', '--%(name)=%(value)')\n"
            // From now on only the names read above count; their values are still looked up.
            "replace_args('--game-new=2', '--game-lang=it')\n"
            "second = command_line_args('game-(.*)', '--%(name)=%(value)')\n"});
        QVERIFY2(child.exitedWith(0), (child.out + child.err).constData());
        const QVariantMap values = QJsonDocument::fromJson(child.out).object().toVariantMap();
        QCOMPARE(values.value("first").toStringList(), (QStringList{"--late=1", "--lang=de"}));
        QCOMPARE(values.value("second").toStringList(), QStringList{"--lang=it"});
    }
};

TEST_MAIN_WITH_SCENARIOS(tst_IciFunctions, QCoreApplication, scriptScenario)
#include "tst_icifunctions.moc"
