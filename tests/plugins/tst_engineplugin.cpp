// The engine plugin as the launcher runs it: the real engine, network and errors plugins in a plugin host, a
// configuration script naming the game, a repository published with the update library and served by nginx.
// A copy of the fixture plugin, which links only the launcher library, drives the engine's operations by name.
// Each case asserts the states the engine emitted, the files on disk and the errors posted.
#include <libupdater/IUpdateEngine.h>
#include <libupdater/IUpdaterErrorManager.h>

#include "BundledPlugins.h"

#include <FaultProxy.h>
#include <NginxServer.h>

#include <vantor/Keys.h>
#include <vantor/Operation.h>

#include <QtCore/QCryptographicHash>
#include <QtCore/QDirIterator>
#include <QtCore/QRandomGenerator>
#include <QtTest/QSignalSpy>
#include <QtTest/QTest>

using namespace tvl::updater;
using testsupport::FaultProxy;
using testsupport::NginxServer;
using State = IUpdateEngine::UpdateStateE;

namespace {

constexpr int Timeout = 60000;

QByteArray randomBytes(qint64 size, quint32 seed)
{
    QByteArray data(size, Qt::Uninitialized);
    QRandomGenerator(seed).fillRange(reinterpret_cast<quint32*>(data.data()), size / 4);
    return data;
}

/// "<path> <sha256>" of every file below `root`, the engine's own records left out.
QStringList treeOf(const QString& root)
{
    QStringList files;
    QDirIterator it(root, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        const QString relative = QDir(root).relativeFilePath(path);
        if (relative.startsWith(QLatin1String(".vantor/")))
            continue;
        files.append(relative + QLatin1Char(' ')
                     + QString::fromLatin1(QCryptographicHash::hash(testsupport::readFile(path), QCryptographicHash::Sha256).toHex()));
    }
    files.sort();
    return files;
}

/// A game in two versions, published into a repository served by nginx, and a launcher's plugin host over it.
struct Launcher
{
    QTemporaryDir work;
    QString repository = work.filePath(QStringLiteral("repository"));
    QString installDirectory = work.filePath(QStringLiteral("games/demo"));
    NginxServer server{repository};
    QByteArray publicKey, secretKey;
    Host host;
    IUpdateEngine* engine = nullptr;
    qsizetype statesSeen = 0;
    QList<tvl::vantor::UpdateResultPtr> results;

    Launcher()
    {
        QDir().mkpath(repository);
        tvl::vantor::Keys::generate(&publicKey, &secretKey);
        // Version 1: a game script, a level file, a blob. Version 2 changes the blob in the middle,
        // adds a file and drops one.
        const QByteArray game = "#!/bin/sh\nwhile [ ! -e \"$1\" ]; do sleep 0.05; done\n";
        const QByteArray blob = randomBytes(600 * 1024, 1);
        write("v1/bin/game", game, true);
        write("v1/data/levels.txt", "meadow\ncave\n");
        write("v1/data/blob", blob);
        write("v1/README", "version 1");
        QByteArray blob2 = blob;
        blob2.replace(300 * 1024, 4096, randomBytes(8192, 2));
        write("v2/bin/game", game, true);
        write("v2/data/levels.txt", "meadow\ncave\ntower\n");
        write("v2/data/blob", blob2);
        write("v2/CHANGES", "version 2");
    }

    void write(const QString& path, const QByteArray& content, bool executable = false)
    {
        const QString file = testsupport::writeFile(work.filePath(path), content);
        if (executable)
            QFile::setPermissions(file, QFile::permissions(file) | QFile::ExeOwner | QFile::ExeUser);
    }

    bool publish(const QString& tree, const QString& version, const QString& channel = QStringLiteral("stable"))
    {
        tvl::vantor::Options options;
        options.sourceDirectory = work.filePath(tree);
        options.repositoryDirectory = repository;
        options.project = QStringLiteral("demo");
        options.channel = channel;
        options.version = version;
        options.secretKey = secretKey;
        tvl::vantor::Operation publish(tvl::vantor::Operation::Publish, options);
        QSignalSpy done(&publish, &tvl::vantor::Operation::finished);
        publish.start();
        return (!done.isEmpty() || done.wait(Timeout)) && publish.result() && publish.result()->success;
    }

    /// Loads the plugins with the script's projects table filled in by `project` (Lua fields) and runtime
    /// settings `settings`; `base` is the repository's address (nginx's unless a proxy's).
    bool start(const QString& project = QString(), const QString& settings = QString(), QUrl base = QUrl())
    {
        QString error;
        if (!server.isRunning() && !server.start(&error)) {
            qWarning("%s", qPrintable(error));
            return false;
        }
        if (base.isEmpty())
            base = server.url();
        const QString script = QStringLiteral(
            "update = { automatic = false, check_interval_minutes = 60 }\n"
            "projects = { demo = { name = { en = 'Demo game', fr = 'Jeu' }, url = '%1', channel = 'stable', dir = '%2',\n"
            "  keys = { '%3' }, executable = 'bin/game', arguments = { '%4' }, news = 'Fresh', %5 } }\n")
                                   .arg(base.toString(), installDirectory,
                                        tvl::vantor::Keys::encodePublicKey(publicKey), work.filePath("stop-game"), project);
        testsupport::writeFile(work.filePath("launcher.lua"), script.toUtf8());
        for (const char* name : {"engine", "network", "errors"})
            addBundled(host.dir, QString::fromLatin1(name));
        host.add({QStringLiteral("settings||script = '%1', settings = { %2 }").arg(work.filePath("launcher.lua"), settings),
                  QStringLiteral("driver|soft_depends = { 'engine' }")});
        const bool loaded = host.start()->loadPlugins(false);
        engine = loaded ? host.manager->api()->getObject<IUpdateEngine>() : nullptr;
        if (!engine)
            return false;
        QObject::connect(engine, &IUpdateEngine::projectUpdated, engine,
                         [this](const tvl::vantor::UpdateResultPtr& result) { results.append(result); });
        return true;
    }

    /// Runs an engine operation by name through the driver plugin.
    bool drive(const QString& method, const QString& argument = QString())
    {
        const QString call = QStringLiteral("engine %1 demo %2").arg(method, argument).trimmed();
        host.manager->api()->callInPlugin(QStringLiteral("driver"), "drive", Q_ARG(QString, call));
        return host.journal->endsWith(QStringLiteral("driver drive %1 called").arg(call));
    }

    /// Waits until the project's state is `state` and no operation runs; the states emitted since the last call.
    QList<int> waitFor(int state)
    {
        if (!QTest::qWaitFor([&] { return engine->projectState("demo") == IUpdateEngine::UpdateState(state) && !busy(); }, Timeout))
            qWarning("the project's state is %d, not %d", int(engine->projectState("demo")), state);
        // The driver, loaded after the engine, recorded every state the engine emitted for the project.
        QList<int> states;
        const QStringList entries = host.journal->filter(QStringLiteral("driver state demo "));
        for (qsizetype i = statesSeen; i < entries.size(); ++i)
            states.append(entries.at(i).section(' ', -1).toInt());
        statesSeen = entries.size();
        return states;
    }
    bool busy() const
    {
        const IUpdateEngine::UpdateState state = engine->projectState("demo");
        return state.testFlag(IUpdateEngine::Updating) || state.testFlag(IUpdateEngine::CheckingUpdates);
    }
    QVariantMap info() const
    {
        QVariantMap info;
        host.manager->api()->callInPlugin(QStringLiteral("engine"), "projectInfo", Q_ARG(QString, "demo"), Q_ARG(QVariantMap*, &info));
        return info;
    }
    /// The "U" identifiers of the errors the errors plugin kept.
    QStringList errors() const
    {
        QStringList ids;
        if (auto* manager = host.manager->api()->getObject<IUpdaterErrorManager>()) {
            for (const UpdaterError& error : manager->errors())
                ids.append(error.errorId());
        }
        return ids;
    }
};

const int NotInstalled = State::UpdatePending;
const int Current = State::UpToDate | State::Executable;
const int Available = State::UpdatePending | State::Executable;

} // namespace

class TestEnginePlugin : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete); }

    void lifeOfAGame()
    {
        // Install, update (only the changed chunks), verify, a damaged file found and repaired, rollback: each
        // with the states of the table, the tree as published, and the engine's metadata.
        Launcher launcher;
        QVERIFY(launcher.publish("v1", "1.0"));
        QVERIFY(launcher.start());
        QCOMPARE(launcher.waitFor(NotInstalled), (QList<int>{State::CheckingUpdates, NotInstalled}));
        QCOMPARE(launcher.engine->state(), IUpdateEngine::UpdateState(State::UpdatePending));
        QCOMPARE(launcher.info().value("availableVersion").toString(), QStringLiteral("1.0"));
        QCOMPARE(launcher.info().value("name").toString(), QStringLiteral("Demo game"));

        QVERIFY(launcher.drive("install"));
        QCOMPARE(launcher.waitFor(Current), (QList<int>{State::Updating, Current}));
        QCOMPARE(treeOf(launcher.installDirectory), treeOf(launcher.work.filePath("v1")));
        QCOMPARE(launcher.info().value("installedVersion").toString(), QStringLiteral("1.0"));
        QCOMPARE(launcher.engine->state(), IUpdateEngine::UpdateState(Current));

        QVERIFY(launcher.publish("v2", "2.0"));
        launcher.server.clearLog();
        launcher.host.manager->api()->callInPlugin(QStringLiteral("engine"), "checkAll");
        QCOMPARE(launcher.waitFor(Available), (QList<int>{State::CheckingUpdates | State::Executable, Available}));
        QVERIFY(launcher.drive("install"));
        QCOMPARE(launcher.waitFor(Current), (QList<int>{State::Updating, Current}));
        QCOMPARE(treeOf(launcher.installDirectory), treeOf(launcher.work.filePath("v2")));
        // The delta: far less than the blob, which changed in the middle only.
        QVERIFY2(launcher.server.bytesSent("/chunks/") < 300 * 1024, qPrintable(QString::number(launcher.server.bytesSent("/chunks/"))));

        QVERIFY(launcher.drive("verify"));
        QCOMPARE(launcher.waitFor(Current), (QList<int>{State::Updating, Current}));
        QFile blob(launcher.installDirectory + "/data/blob");
        QVERIFY(blob.open(QIODevice::ReadWrite) && blob.seek(1000) && blob.write("damage") == 6);
        blob.close();
        QVERIFY(launcher.drive("verify"));
        QCOMPARE(launcher.waitFor(State::UpdateFailed), (QList<int>{State::Updating, State::UpdateFailed}));
        QCOMPARE(launcher.errors(), QStringList{"U04080106"});
        launcher.server.clearLog();
        QVERIFY(launcher.drive("repair"));
        QCOMPARE(launcher.waitFor(Current), (QList<int>{State::Updating, Current}));
        QCOMPARE(treeOf(launcher.installDirectory), treeOf(launcher.work.filePath("v2")));
        QVERIFY(launcher.server.bytesSent("/chunks/") < 300 * 1024);

        // Back to 1.0, which stays (pinned) although 2.0 is offered.
        QVERIFY(launcher.info().value("rollbackPossible").toBool());
        QVERIFY(launcher.drive("rollback"));
        QCOMPARE(launcher.waitFor(Available), (QList<int>{State::Updating, Available}));
        QCOMPARE(treeOf(launcher.installDirectory), treeOf(launcher.work.filePath("v1")));
        QCOMPARE(launcher.info().value("installedVersion").toString(), QStringLiteral("1.0"));

        QStringList operations;
        for (const auto& result : std::as_const(launcher.results))
            operations.append(QStringLiteral("%1 %2").arg(result->success).arg(result->version));
        QCOMPARE(operations, (QStringList{"1 1.0", "1 2.0", "1 2.0", "0 2.0", "1 2.0", "1 1.0"}));
    }

    void pauseAndResume()
    {
        // A paused install keeps what it fetched: resumed, no byte of a chunk is fetched twice.
        Launcher launcher;
        launcher.write("big/data/pack", randomBytes(3 * 1024 * 1024, 9));
        QVERIFY(launcher.publish("big", "1.0"));
        QVERIFY(launcher.start(QString(), QStringLiteral("['network.rate_limit'] = 768, ['network.max_connections'] = 2")));
        launcher.waitFor(NotInstalled);
        launcher.server.clearLog();
        QSignalSpy progress(launcher.engine, &IUpdateEngine::progress);
        QVERIFY(launcher.drive("install"));
        QVERIFY(QTest::qWaitFor([&] { return launcher.server.bytesSent("/chunks/") > 512 * 1024; }, Timeout));
        QVERIFY(launcher.drive("pause"));
        QCOMPARE(launcher.waitFor(NotInstalled), (QList<int>{State::Updating, NotInstalled}));
        QVERIFY(launcher.info().value("paused").toBool());
        QVERIFY(!progress.isEmpty());
        // What was fetched stays: whole chunks (written into the staged files and listed as
        // landed), and the beginnings of those under way.
        qint64 kept = 0;
        for (const QByteArray& chunk : testsupport::readFile(launcher.installDirectory + "/.vantor/staging/landed").split('\n')) {
            if (!chunk.isEmpty())
                kept += QFileInfo(launcher.repository + "/demo/chunks/" + chunk.left(2) + "/" + chunk + ".zst").size();
        }
        QDirIterator partial(launcher.installDirectory + "/.vantor/partial", QDir::Files);
        while (partial.hasNext())
            kept += QFileInfo(partial.next()).size();
        QVERIFY(kept > 0);
        launcher.server.clearLog();
        QVERIFY(launcher.drive("resume"));
        QCOMPARE(launcher.waitFor(Current), (QList<int>{State::Updating, Current}));
        QCOMPARE(treeOf(launcher.installDirectory), treeOf(launcher.work.filePath("big")));
        qint64 stored = 0;
        QDirIterator chunks(launcher.repository + "/demo/chunks", QDir::Files, QDirIterator::Subdirectories);
        while (chunks.hasNext())
            stored += QFileInfo(chunks.next()).size();
        // The resumed install asked only for the rest: no byte of the repository twice.
        QCOMPARE(launcher.server.bytesSent("/chunks/"), stored - kept);
        QVERIFY(launcher.errors().isEmpty());
    }

    void gameRunningBlocksTheUpdate()
    {
        // While the game runs its files stay as they are; the update waits and goes on by itself at its end.
        Launcher launcher;
        QVERIFY(launcher.publish("v1", "1.0"));
        QVERIFY(launcher.start());
        launcher.waitFor(NotInstalled);
        QVERIFY(launcher.drive("install"));
        launcher.waitFor(Current);
        QVERIFY(launcher.drive("launch"));
        QTRY_VERIFY_WITH_TIMEOUT(launcher.info().value("running").toBool(), Timeout);
        QVERIFY(launcher.publish("v2", "2.0"));
        launcher.host.manager->api()->callInPlugin(QStringLiteral("engine"), "checkAll");
        QTRY_VERIFY_WITH_TIMEOUT(launcher.info().value("availableVersion").toString() == QStringLiteral("2.0"), Timeout);
        QVERIFY(launcher.drive("install"));
        QTest::qWait(500);
        QCOMPARE(int(launcher.engine->projectState("demo")), State::UpdateBlockedByProcess | State::UpdatePending);
        QCOMPARE(treeOf(launcher.installDirectory), treeOf(launcher.work.filePath("v1")));
        QVERIFY(launcher.errors().contains(QStringLiteral("U0408010B")));

        launcher.write("stop-game", "");
        const QList<int> states = launcher.waitFor(Current);
        QCOMPARE(states.mid(states.size() - 2), (QList<int>{State::Updating, Current}));
        QCOMPARE(treeOf(launcher.installDirectory), treeOf(launcher.work.filePath("v2")));
    }

    void serverFailsMidUpdate_data()
    {
        QTest::addColumn<int>("failures"); // 503 answers to chunk requests
        QTest::addColumn<bool>("installed");
        QTest::addColumn<QStringList>("errors");
        QTest::newRow("a few: retried") << 3 << true << QStringList();
        QTest::newRow("for good: a clear error") << 1000 << false << QStringList{"U04020002"};
    }

    void serverFailsMidUpdate()
    {
        QFETCH(int, failures);
        QFETCH(bool, installed);
        Launcher launcher;
        QVERIFY(launcher.publish("v1", "1.0"));
        QVERIFY(launcher.server.start());
        FaultProxy proxy(launcher.server.url());
        proxy.addFault(FaultProxy::Unavailable, QStringLiteral("/chunks/"), failures, 0);
        QVERIFY(launcher.start(QString(), QString(), proxy.url()));
        launcher.waitFor(NotInstalled);
        QVERIFY(launcher.drive("install"));
        const QList<int> states = launcher.waitFor(installed ? Current : State::UpdateFailed | State::UpdatePending);
        QCOMPARE(states.last(), installed ? Current : State::UpdateFailed | State::UpdatePending);
        QTEST(launcher.errors(), "errors");
        QCOMPARE(treeOf(launcher.installDirectory).size(), installed ? 4 : 0);
    }

    void badSettings_data()
    {
        QTest::addColumn<QString>("project"); // Lua fields that replace those of the script
        QTest::addColumn<QString>("error");
        QTest::newRow("no key list") << "keys = {}" << "U04020009";
        QTest::newRow("a key that is no key") << "keys = { 'not a key' }" << "U04080109";
        QTest::newRow("unknown channel") << "channel = 'nightly'" << "U0402000A";
        QTest::newRow("install directory under a file") << "dir = '@/file/demo'" << "U04080102";
    }

    void badSettings()
    {
        QFETCH(QString, project);
        Launcher launcher;
        QVERIFY(launcher.publish("v1", "1.0"));
        launcher.write("file", "not a directory");
        project.replace('@', launcher.work.path());
        QVERIFY(launcher.start(project));
        QVERIFY(QTest::qWaitFor([&] { return launcher.engine->projectState("demo") != IUpdateEngine::Initializing && !launcher.busy(); }, Timeout));
        launcher.drive("install");
        QTRY_VERIFY_WITH_TIMEOUT(!launcher.errors().isEmpty() && !launcher.busy(), Timeout);
        QFETCH(QString, error);
        QVERIFY2(launcher.errors().contains(error), qPrintable(launcher.errors().join(' ')));
        QVERIFY(launcher.engine->projectState("demo").testFlag(IUpdateEngine::UpdateFailed));
        QVERIFY(!QFileInfo::exists(launcher.installDirectory));
    }

    void keysOnlyFromTheScript()
    {
        // A key given at run time (as an option or a preference would be) is not trusted.
        Launcher launcher;
        QVERIFY(launcher.publish("v1", "1.0"));
        const QString key = tvl::vantor::Keys::encodePublicKey(launcher.publicKey);
        QVERIFY(launcher.start(QStringLiteral("keys = {}"), QStringLiteral("['projects.demo.keys'] = { '%1' }").arg(key)));
        QVERIFY(QTest::qWaitFor([&] { return launcher.engine->projectState("demo") != IUpdateEngine::Initializing && !launcher.busy(); }, Timeout));
        launcher.drive("install");
        QTRY_VERIFY_WITH_TIMEOUT(launcher.errors().contains(QStringLiteral("U04020009")), Timeout);
        QVERIFY(!QFileInfo::exists(launcher.installDirectory));
    }
};

QTEST_GUILESS_MAIN(TestEnginePlugin)
#include "tst_engineplugin.moc"
