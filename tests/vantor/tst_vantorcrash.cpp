// Killed updates: after each step of applying the journal in turn, and at seeded random
// moments, the next run ends with exactly one whole version. A download killed half-way
// goes on without fetching again what it had.
#include "VantorFixture.h"

#include <vantor/InstallDirectory_p.h>

#include <QtTest/QtTest>

#include <csignal>

using namespace vantortest;
using testsupport::NginxServer;

namespace {

constexpr char KillStepVariable[] = "VANTOR_TEST_KILL_AT_STEP";

int killAtStep = 0;

void killAtChosenStep(int step)
{
    if (step == killAtStep)
        ::raise(SIGKILL);
}

/// The child: an update through the library whose commit is killed after step N.
int runScenario(const QByteArray& scenario, int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    if (scenario != "update")
        return 100;
    killAtStep = qEnvironmentVariableIntValue(KillStepVariable);
    tvl::vantor::setCommitStepHook(killAtChosenStep);
    Options options;
    options.repository = QUrl(qEnvironmentVariable("VANTOR_TEST_URL"));
    options.project = "demo";
    options.trustedKeys = {tvl::vantor::Keys::decodePublicKey(qEnvironmentVariable("VANTOR_TEST_KEY"))};
    options.installDirectory = qEnvironmentVariable("VANTOR_TEST_DIR");
    const auto result = runOperation(Operation::Update, options);
    return int(result->error);
}

/// Copies a directory with everything in it (links as links, modes kept).
bool copyTree(const QString& from, const QString& to)
{
    QDir(to).removeRecursively();
    return testsupport::runProcess("cp", {"-a", from, to}).exitedWith(0);
}

} // namespace

class TestVantorCrash : public QObject
{
    Q_OBJECT

private:
    Repository repository;
    std::unique_ptr<NginxServer> server;
    QTemporaryDir work;
    QMap<QString, QByteArray> v1, v2;
    QString pristine;   ///< version 1 installed, never touched

    QStringList toolArguments(const QString& dir) const
    {
        return {"--dir", dir, "--repository", server->url().toString(), "--project", "demo", "--public-key", repository.publicKeyText()};
    }

    /// Runs the next operation after a kill and says which version it left, or why none.
    QString recoverAndIdentify(const QString& dir)
    {
        const auto run = testsupport::runProcess(VANTOR_TOOL, QStringList{"verify"} + toolArguments(dir));
        if (!run.exitedWith(0))
            return "verify failed: " + QString::fromUtf8(run.out + run.err);
        const QMap<QString, QByteArray> digest = treeDigest(dir);
        if (digest == v1)
            return "1";
        if (digest == v2)
            return "2";
        QStringList differences;
        for (auto it = digest.cbegin(); it != digest.cend(); ++it) {
            if (v1.value(it.key()) != it.value() && v2.value(it.key()) != it.value())
                differences.append(it.key());
        }
        return "a mix of both versions: " + differences.join(", ");
    }

private slots:
    void initTestCase()
    {
        QVERIFY(repository.publish(1)->success);
        QVERIFY(repository.publish(2)->success);
        v1 = treeDigest(repository.source(1));
        v2 = treeDigest(repository.source(2));
        // Version 1 is installed from a record of its own; then version 2 is the channel's.
        server = std::make_unique<NginxServer>(repository.path());
        QString error;
        QVERIFY2(server->start(&error), qPrintable(error));
        pristine = work.path() + "/pristine";
        QVERIFY(repository.publish(1)->success);
        QVERIFY(runOperation(Operation::Install, repository.client(server->url(), pristine))->success);
        QCOMPARE(treeDigest(pristine), v1);
        QVERIFY(repository.publish(2)->success);
    }

    void killedAfterEachJournalStep()
    {
        const QString dir = work.path() + "/steps";
        int step = 1;
        for (;; ++step) {
            QVERIFY(copyTree(pristine, dir));
            const auto child = testsupport::runScenario("update", {},
                                                        {QString(KillStepVariable) + "=" + QString::number(step),
                                                         "VANTOR_TEST_URL=" + server->url().toString(),
                                                         "VANTOR_TEST_KEY=" + repository.publicKeyText(), "VANTOR_TEST_DIR=" + dir});
            QVERIFY2(child.finished, "the child hung");
            const bool killed = child.status == QProcess::CrashExit;
            if (!killed)
                QVERIFY2(child.exitedWith(0), child.err.right(2000).constData());
            // The journal is written before step 1: from there on only the new version is possible.
            const QString outcome = recoverAndIdentify(dir);
            QVERIFY2(outcome == "2", qPrintable(QStringLiteral("killed after step %1: %2").arg(step).arg(outcome)));
            QVERIFY(!QFile::exists(dir + "/.vantor/journal.json"));
            if (!killed)
                break;
        }
        QVERIFY2(step > 8, qPrintable(QStringLiteral("only %1 steps").arg(step))); // each move is a step
    }

    void killedAtRandomMoments()
    {
        const QString dir = work.path() + "/random";
        // How long the tool takes to start and to update here, so that the kills spread over
        // the update itself rather than over the start of the process.
        QVERIFY(copyTree(pristine, dir));
        QElapsedTimer clock;
        clock.start();
        QVERIFY(testsupport::runProcess(VANTOR_TOOL, QStringList{"status", "--dir", dir}).exitedWith(0));
        const qint64 start = clock.restart();
        QVERIFY(testsupport::runProcess(VANTOR_TOOL, QStringList{"update"} + toolArguments(dir)).exitedWith(0));
        const qint64 duration = std::max<qint64>(clock.elapsed(), start + 20);

        const quint32 seed = qEnvironmentVariableIsSet("VANTOR_KILL_SEED") ? quint32(qEnvironmentVariableIntValue("VANTOR_KILL_SEED"))
                                                                           : QRandomGenerator::global()->generate();
        QRandomGenerator random(seed);
        QMap<QString, int> outcomes;
        for (int round = 0; round < 20; ++round) {
            QVERIFY(copyTree(pristine, dir));
            const int delay = int(start * 8 / 10 + random.bounded(quint32(duration * 12 / 10 - start * 8 / 10)));
            QProcess tool;
            tool.start(VANTOR_TOOL, QStringList{"update"} + toolArguments(dir));
            QVERIFY(tool.waitForStarted());
            QThread::msleep(ulong(delay));
            ::kill(pid_t(tool.processId()), SIGKILL);
            tool.waitForFinished();
            const QString version = recoverAndIdentify(dir);
            QVERIFY2(version == "1" || version == "2",
                     qPrintable(QStringLiteral("seed %1 (set VANTOR_KILL_SEED to repeat), round %2, killed after %3 ms: %4")
                                    .arg(seed).arg(round).arg(delay).arg(version)));
            outcomes[version]++;
        }
        qInfo("seed %u, update %lld ms: %d times version 1, %d times version 2", seed, duration, outcomes.value("1"),
              outcomes.value("2"));
    }

    void killedDownloadGoesOn()
    {
        const QString dir = work.path() + "/download";
        QDir(dir).removeRecursively();
        server->clearLog();
        QProcess tool;
        tool.start(VANTOR_TOOL, QStringList{"install", "--rate-limit", "250000", "--connections", "2"} + toolArguments(dir));
        QVERIFY(tool.waitForStarted());
        // Killed once a few chunks have arrived whole.
        const auto complete = [&] {
            QSet<QString> chunks;
            for (const auto& request : server->requests()) {
                const QString name = QFileInfo(request.uri).completeBaseName();
                const qint64 size = QFileInfo(repository.path() + "/demo/chunks/" + name.left(2) + "/" + name + ".zst").size();
                if (request.uri.contains("/chunks/") && request.status == 200 && request.bytes == size)
                    chunks.insert(name);
            }
            return chunks;
        };
        for (QDeadlineTimer deadline(20'000); complete().size() < 5 && !deadline.hasExpired();)
            QTest::qWait(20);
        ::kill(pid_t(tool.processId()), SIGKILL);
        tool.waitForFinished();
        // What the client had verified and kept when it died; a chunk the server finished
        // sending may still have been on its way.
        QSet<QString> kept = keptChunks(dir);
        QVERIFY2(kept.size() >= 2, qPrintable(QString::number(kept.size())));
        QVERIFY(!QFile::exists(dir + "/.vantor/state.json"));

        // A kept chunk whose bytes did not reach the disk (a power loss may leave the list
        // longer than the file) is checked, found wrong and fetched again.
        tvl::vantor::Manifest staged;
        QString error;
        QVERIFY(staged.fromJson(testsupport::readFile(dir + "/.vantor/staging/staged.json"), &error));
        QSet<QString> lost;
        for (const auto& file : std::as_const(staged.files)) {
            for (const QByteArray& chunk : file.chunks) {
                const bool elsewhere = std::any_of(staged.files.cbegin(), staged.files.cend(), [&](const auto& other) {
                    return other.path != file.path && other.chunks.contains(chunk);
                });
                if (kept.contains(QString::fromLatin1(chunk)) && !elsewhere)
                    lost.insert(QString::fromLatin1(chunk));
            }
            if (!lost.isEmpty()) {
                QVERIFY(QFile::resize(dir + "/.vantor/staging/" + file.path, 0));
                break;
            }
        }
        QVERIFY(!lost.isEmpty());
        kept -= lost;

        server->clearLog();
        const auto run = testsupport::runProcess(VANTOR_TOOL, QStringList{"install"} + toolArguments(dir));
        QVERIFY2(run.exitedWith(0), run.err.constData());
        QCOMPARE(treeDigest(dir), v2);
        for (const auto& request : server->requests())
            QVERIFY2(!kept.contains(QFileInfo(request.uri).completeBaseName()), qPrintable("fetched twice: " + request.uri));
        // Counted at the server: exactly the chunks it did not keep.
        QCOMPARE(server->bytesSent("/chunks/"), storedBytes(dir, kept));
    }
};

TEST_MAIN_WITH_SCENARIOS(TestVantorCrash, QCoreApplication, runScenario)
#include "tst_vantorcrash.moc"
