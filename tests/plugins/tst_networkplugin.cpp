// The network plugin in a real plugin host against a real nginx, with a fault-injecting proxy between them
// where a case needs failures: retries and Retry-After, no retry of POST, resumed downloads with validators,
// redirects, the shared rate limit and connection count, live settings.
#include <libupdater/INetworkManager.h>
#include <libupdater/Updater.h>

#include "BundledPlugins.h"

#include <FaultProxy.h>
#include <NginxServer.h>

#include <QtCore/QCryptographicHash>
#include <QtCore/QElapsedTimer>
#include <QtCore/QRandomGenerator>
#include <QtNetwork/QNetworkReply>
#include <QtNetwork/QSslConfiguration>
#include <QtTest/QSignalSpy>
#include <QtTest/QTest>

using namespace tvl::updater;
using testsupport::FaultProxy;
using testsupport::NginxServer;

namespace {

constexpr int Timeout = 30000;

QByteArray payload(qint64 size, quint32 seed)
{
    QByteArray data(size, Qt::Uninitialized);
    QRandomGenerator generator(seed);
    generator.fillRange(reinterpret_cast<quint32*>(data.data()), size / 4);
    return data;
}

/// What a reply gave: its body as read while it ran, its error and its status.
struct Outcome
{
    QByteArray body;
    QNetworkReply::NetworkError error = QNetworkReply::NoError;
    int status = 0;
    bool finished = false;
};

Outcome finish(QNetworkReply* reply, int timeoutMs = Timeout)
{
    Outcome outcome;
    QObject::connect(reply, &QNetworkReply::readyRead, reply, [&outcome, reply] { outcome.body += reply->readAll(); });
    outcome.finished = reply->isFinished() || QTest::qWaitFor([reply] { return reply->isFinished(); }, timeoutMs);
    outcome.body += reply->readAll();
    outcome.error = reply->error();
    outcome.status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    reply->deleteLater();
    return outcome;
}

/// A plugin host with the network plugin over a settings manager of the given values, and an nginx over files.
struct Network
{
    QTemporaryDir files;
    NginxServer server{files.path()};
    Host host;
    INetworkManager* manager = nullptr;

    QString file(const QString& name) const { return files.filePath(name); }
    void serve(const QString& name, const QByteArray& content) const { testsupport::writeFile(file(name), content); }

    bool start(const QString& settings = QString(), const QString& directives = QString(), bool tls = false)
    {
        if (!directives.isEmpty())
            server.addServerConfig(directives);
        QString error;
        if ((tls && !server.enableTls(&error)) || !server.start(&error)) {
            qWarning("%s", qPrintable(error));
            return false;
        }
        addBundled(host.dir, QStringLiteral("network"));
        // A copy of the fixture named "settings", which the network plugin loads after.
        if (!host.load({QStringLiteral("settings||settings = { %1 }").arg(settings)}))
            return false;
        manager = host.manager->api()->getObject<INetworkManager>();
        return manager != nullptr;
    }
    void set(const QString& key, const QVariant& value) { host.manager->api()->setSetting(key, value); }
    QUrl url(const QString& path) const { return server.url().resolved(QUrl(path)); }
};

} // namespace

class TestNetworkPlugin : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete); }

    void retries_data()
    {
        QTest::addColumn<QString>("operation");
        QTest::addColumn<int>("fault");       // FaultProxy::Kind; -1: none
        QTest::addColumn<int>("times");
        QTest::addColumn<qint64>("bytes");    // of the fault (Retry-After seconds for Unavailable)
        QTest::addColumn<QString>("path");
        QTest::addColumn<int>("error");       // QNetworkReply::NetworkError
        QTest::addColumn<int>("faults");      // how many the proxy applied
        QTest::addColumn<int>("served");      // requests that reached nginx

        const int ok = QNetworkReply::NoError;
        QTest::newRow("GET, 503 twice") << "get" << int(FaultProxy::Unavailable) << 2 << qint64(0) << "/data" << ok << 2 << 1;
        QTest::newRow("GET, 503 more often than it tries") << "get" << int(FaultProxy::Unavailable) << 10 << qint64(0)
                                                           << "/data" << int(QNetworkReply::ServiceUnavailableError) << 6 << 0;
        QTest::newRow("GET, cut in the middle") << "get" << int(FaultProxy::CutAfter) << 1 << qint64(96 * 1024) << "/data" << ok << 1 << 2;
        QTest::newRow("GET, stalled") << "get" << int(FaultProxy::Stall) << 1 << qint64(32 * 1024) << "/data" << ok << 1 << 2;
        QTest::newRow("GET, missing: not retried") << "get" << -1 << 0 << qint64(0) << "/missing"
                                                   << int(QNetworkReply::ContentNotFoundError) << 0 << 1;
        QTest::newRow("HEAD, 503 once") << "head" << int(FaultProxy::Unavailable) << 1 << qint64(0) << "/data" << ok << 1 << 1;
        QTest::newRow("POST, 503: never retried") << "post" << int(FaultProxy::Unavailable) << 3 << qint64(0) << "/data"
                                                  << int(QNetworkReply::ServiceUnavailableError) << 1 << 0;
    }

    void retries()
    {
        QFETCH(QString, operation);
        QFETCH(int, fault);
        QFETCH(int, times);
        QFETCH(qint64, bytes);
        QFETCH(QString, path);
        QFETCH(int, error);
        Network network;
        const QByteArray content = payload(512 * 1024, 7);
        network.serve(QStringLiteral("data"), content);
        // A second without a byte fails an attempt; the first pause before a retry is short.
        QVERIFY(network.start(QStringLiteral("['network.timeout'] = 1")));
        FaultProxy proxy(network.server.url());
        if (fault >= 0)
            proxy.addFault(FaultProxy::Kind(fault), path, times, bytes);
        const QNetworkRequest request(proxy.url().resolved(QUrl(path)));
        QNetworkReply* reply = operation == QLatin1String("get") ? network.manager->get(request)
            : operation == QLatin1String("head")                  ? network.manager->head(request)
                                                                   : network.manager->post(request, "x=1");
        const Outcome outcome = finish(reply);
        QVERIFY(outcome.finished);
        QCOMPARE(int(outcome.error), error);
        if (error == QNetworkReply::NoError && operation == QLatin1String("get"))
            QVERIFY2(outcome.body == content, qPrintable(QString::number(outcome.body.size())));
        QTEST(proxy.faultsApplied(), "faults");
        const QList<NginxServer::Request> served = network.server.requests();
        QTEST(int(served.size()), "served");
        // A retry after a cut asks only for the rest, tied to the first answer by its validator.
        if (fault == FaultProxy::CutAfter || fault == FaultProxy::Stall) {
            QVERIFY(served.first().range.isEmpty());
            QVERIFY2(served.last().range.startsWith("bytes=") && !served.last().ifRange.isEmpty(), served.last().range.constData());
            QCOMPARE(served.last().status, 206);
        }
    }

    void retryAfterIsHonoured()
    {
        Network network;
        network.serve(QStringLiteral("data"), "hello");
        QVERIFY(network.start());
        FaultProxy proxy(network.server.url());
        proxy.addFault(FaultProxy::Unavailable, QStringLiteral("/data"), 1, 2); // "Retry-After: 2"
        QElapsedTimer clock;
        clock.start();
        const Outcome outcome = finish(network.manager->get(QNetworkRequest(proxy.url().resolved(QUrl("/data")))));
        QVERIFY(outcome.error == QNetworkReply::NoError && outcome.body == "hello");
        // Not a speed target: without Retry-After the first retry comes after half a second.
        QVERIFY2(clock.elapsed() >= 1900, qPrintable(QString::number(clock.elapsed())));
    }

    void resumedDownload_data()
    {
        QTest::addColumn<bool>("changed"); // the file changes on the server between the two downloads
        QTest::newRow("the same file: only the rest is fetched") << false;
        QTest::newRow("a changed file: fetched afresh") << true;
    }

    void resumedDownload()
    {
        QFETCH(bool, changed);
        Network network;
        const QByteArray first = payload(768 * 1024, 1);
        network.serve(QStringLiteral("game.pak"), first);
        // Slow enough to stop the first download in the middle.
        QVERIFY(network.start(QStringLiteral("['network.rate_limit'] = 256")));
        QTemporaryDir target;
        const QString path = target.filePath(QStringLiteral("downloads/game.pak"));
        QNetworkReply* reply = network.manager->download(network.url("/game.pak"), path);
        QSignalSpy progress(reply, &QNetworkReply::downloadProgress);
        QVERIFY(QTest::qWaitFor([&progress] { return !progress.isEmpty() && progress.last().first().toLongLong() >= 200 * 1024; }, Timeout));
        reply->abort();
        QCOMPARE(finish(reply).error, QNetworkReply::OperationCanceledError);
        QTRY_VERIFY_WITH_TIMEOUT(QFileInfo(path + ".part").size() >= 200 * 1024, Timeout);
        const qint64 kept = QFileInfo(path + ".part").size();
        QVERIFY(!QFile::exists(path));

        const QByteArray second = changed ? payload(640 * 1024, 2) : first;
        if (changed) {
            QTest::qWait(1100); // a new modification time, and so a new validator
            network.serve(QStringLiteral("game.pak"), second);
        }
        network.set(QStringLiteral("network.rate_limit"), 0);
        network.server.clearLog();
        const Outcome outcome = finish(network.manager->download(network.url("/game.pak"), path));
        QCOMPARE(outcome.error, QNetworkReply::NoError);
        QTRY_VERIFY_WITH_TIMEOUT(testsupport::readFile(path) == second, Timeout);
        QVERIFY(!QFile::exists(path + ".part") && !QFile::exists(path + ".part.json"));
        const QList<NginxServer::Request> served = network.server.requests();
        QCOMPARE(served.size(), 1);
        QCOMPARE(served.first().range, "bytes=" + QByteArray::number(kept) + '-');
        QVERIFY(!served.first().ifRange.isEmpty());
        QCOMPARE(served.first().status, changed ? 200 : 206);
        QCOMPARE(served.first().bytes, changed ? second.size() : first.size() - kept);
    }

    void failedDownloadKeepsOrDropsThePart()
    {
        // A download cut for good keeps its part for later; one refused by the server does not leave one.
        Network network;
        network.serve(QStringLiteral("big"), payload(256 * 1024, 3));
        QVERIFY(network.start(QStringLiteral("['network.timeout'] = 1")));
        FaultProxy proxy(network.server.url());
        // Cut once, then unavailable (asking for no pause) until the attempts are used up.
        proxy.addFault(FaultProxy::CutAfter, QStringLiteral("/big"), 1, 64 * 1024);
        proxy.addFault(FaultProxy::Unavailable, QStringLiteral("/big"), 10, 0);
        QTemporaryDir target;
        const Outcome cut = finish(network.manager->download(proxy.url().resolved(QUrl("/big")), target.filePath("big")));
        QVERIFY(cut.error != QNetworkReply::NoError);
        QTRY_VERIFY_WITH_TIMEOUT(QFileInfo(target.filePath("big.part")).size() > 0, Timeout);
        const Outcome refused = finish(network.manager->download(network.url("/missing"), target.filePath("missing")));
        QCOMPARE(refused.error, QNetworkReply::ContentNotFoundError);
        QTest::qWait(100);
        QVERIFY(!QFile::exists(target.filePath("missing.part")) && !QFile::exists(target.filePath("missing")));
    }

    void redirects_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<int>("error");
        QTest::newRow("five in a row") << "/r4" << int(QNetworkReply::NoError);
        QTest::newRow("six in a row") << "/r5" << int(QNetworkReply::TooManyRedirectsError);
        QTest::newRow("https to http") << "tls:/to-http" << int(QNetworkReply::InsecureRedirectError);
        QTest::newRow("http to https") << "/to-https" << int(QNetworkReply::NoError);
    }

    void redirects()
    {
        QFETCH(QString, path);
        Network network;
        network.serve(QStringLiteral("target"), "arrived");
        QString directives;
        for (int i = 1; i <= 6; ++i)
            directives += QStringLiteral("location = /r%1 { return 302 /r%2; }\n").arg(i).arg(i - 1);
        directives += QStringLiteral("location = /r0 { return 302 /target; }\n");
        // Filled in once the ports are known: nginx takes them from variables.
        directives += QStringLiteral("location = /to-http { return 302 http://127.0.0.1:$http_x_plain_port/target; }\n"
                                     "location = /to-https { return 302 https://127.0.0.1:$http_x_tls_port/target; }\n");
        QVERIFY(network.start(QString(), directives, true));
        QSslConfiguration ssl = QSslConfiguration::defaultConfiguration();
        ssl.addCaCertificates(network.server.certificateFile());
        QSslConfiguration::setDefaultConfiguration(ssl);

        const QUrl base = path.startsWith(QLatin1String("tls:")) ? network.server.tlsUrl() : network.server.url();
        QNetworkRequest request(base.resolved(QUrl(path.section(':', -1))));
        request.setRawHeader("X-Plain-Port", QByteArray::number(network.server.url().port()));
        request.setRawHeader("X-Tls-Port", QByteArray::number(network.server.tlsUrl().port()));
        request.setSslConfiguration(ssl);
        const Outcome outcome = finish(network.manager->get(request));
        QTEST(int(outcome.error), "error");
        if (outcome.error == QNetworkReply::NoError)
            QCOMPARE(outcome.body, QByteArray("arrived"));
    }

    void boundedReplyHoldsTheServerBack()
    {
        // A reader that bounds its reply and does not read: the server is held back (TCP), not
        // buffered in memory; read later, the body comes whole.
        Network network;
        const QByteArray content = payload(48 * 1024 * 1024, 5);
        network.serve(QStringLiteral("big"), content);
        QVERIFY(network.start());
        QNetworkReply* held = network.manager->get(QNetworkRequest(network.url("/big")));
        held->setReadBufferSize(1024 * 1024);
        QVERIFY(QTest::qWaitFor([&] { return held->bytesAvailable() >= 1024 * 1024; }, Timeout));
        QTest::qWait(500);
        QCOMPARE(held->bytesAvailable(), 1024 * 1024);
        held->abort();
        held->deleteLater();
        QTRY_VERIFY_WITH_TIMEOUT(!network.server.requests().isEmpty(), Timeout);
        const qint64 sent = network.server.requests().constLast().bytes;
        QVERIFY2(sent < 16 * 1024 * 1024, qPrintable(QString::number(sent)));

        network.server.clearLog();
        QNetworkReply* read = network.manager->get(QNetworkRequest(network.url("/big")));
        read->setReadBufferSize(256 * 1024);
        QByteArray body;
        qint64 largest = 0;
        connect(read, &QNetworkReply::readyRead, read, [&] {
            largest = std::max(largest, read->bytesAvailable());
            body += read->readAll();
        });
        QVERIFY(QTest::qWaitFor([&] { return read->isFinished(); }, Timeout));
        body += read->readAll();
        QCOMPARE(read->error(), QNetworkReply::NoError);
        QVERIFY(body == content);
        QVERIFY2(largest <= 256 * 1024, qPrintable(QString::number(largest)));
        read->deleteLater();
    }

    void sharedRateLimit()
    {
        // Two downloads at once share 256 KiB a second: 768 KiB take about three seconds, both making progress.
        Network network;
        for (const char* name : {"a", "b"})
            network.serve(QString::fromLatin1(name), payload(384 * 1024, quint32(name[0])));
        QVERIFY(network.start(QStringLiteral("['network.rate_limit'] = 256")));
        QTemporaryDir target;
        QElapsedTimer clock;
        clock.start();
        QNetworkReply* a = network.manager->download(network.url("/a"), target.filePath("a"));
        QNetworkReply* b = network.manager->download(network.url("/b"), target.filePath("b"));
        QSignalSpy aProgress(a, &QNetworkReply::downloadProgress);
        QSignalSpy bProgress(b, &QNetworkReply::downloadProgress);
        QVERIFY(QTest::qWaitFor([&] { return clock.elapsed() >= 1000; }, Timeout));
        const qint64 aSoFar = aProgress.isEmpty() ? 0 : aProgress.last().first().toLongLong();
        const qint64 bSoFar = bProgress.isEmpty() ? 0 : bProgress.last().first().toLongLong();
        QVERIFY2(aSoFar > 64 * 1024 && bSoFar > 64 * 1024 && aSoFar + bSoFar < 512 * 1024,
                 qPrintable(QStringLiteral("%1 %2").arg(aSoFar).arg(bSoFar)));
        QCOMPARE(finish(a).error, QNetworkReply::NoError);
        QCOMPARE(finish(b).error, QNetworkReply::NoError);
        // A lower bound from the limit itself (minus the bucket's first burst), not a speed target.
        QVERIFY2(clock.elapsed() >= 2500, qPrintable(QString::number(clock.elapsed())));
        QTRY_VERIFY_WITH_TIMEOUT(testsupport::readFile(target.filePath("b")) == payload(384 * 1024, quint32('b')), Timeout);
    }

    void connectionCount()
    {
        // One connection: the second request starts only once the first has finished; raised at run time, the
        // waiting requests start at once.
        Network network;
        network.serve(QStringLiteral("slow"), payload(128 * 1024, 5));
        network.serve(QStringLiteral("small"), "small");
        QVERIFY(network.start(QStringLiteral("['network.max_connections'] = 1, ['network.rate_limit'] = 128")));
        QNetworkReply* slow = network.manager->get(QNetworkRequest(network.url("/slow")));
        QNetworkReply* small = network.manager->get(QNetworkRequest(network.url("/small")));
        QStringList events;
        connect(slow, &QNetworkReply::finished, this, [&events] { events << "slow finished"; });
        connect(small, &QNetworkReply::metaDataChanged, this, [&events] { events << "small started"; });
        const Outcome first = finish(slow);
        const Outcome second = finish(small);
        QVERIFY(first.error == QNetworkReply::NoError && second.body == "small");
        QCOMPARE(events, (QStringList{"slow finished", "small started"}));

        network.set(QStringLiteral("network.max_connections"), 2);
        events.clear();
        slow = network.manager->get(QNetworkRequest(network.url("/slow")));
        small = network.manager->get(QNetworkRequest(network.url("/small")));
        connect(slow, &QNetworkReply::finished, this, [&events] { events << "slow finished"; });
        connect(small, &QNetworkReply::metaDataChanged, this, [&events] { events << "small started"; });
        QCOMPARE(finish(slow).error, QNetworkReply::NoError);
        QCOMPARE(finish(small).body, QByteArray("small"));
        QCOMPARE(events, (QStringList{"small started", "slow finished"}));
    }

    void userAgentAndAbortAll()
    {
        Network network;
        network.serve(QStringLiteral("slow"), payload(512 * 1024, 6));
        QVERIFY(network.start(QStringLiteral("['network.rate_limit'] = 64"), QStringLiteral("location = /agent { return 200 $http_user_agent; }")));
        QCOMPARE(finish(network.manager->get(QNetworkRequest(network.url("/agent")))).body,
                 "updater/" + QByteArray(tvl::updater::UPDATER_VERSION));
        QNetworkReply* first = network.manager->get(QNetworkRequest(network.url("/slow")));
        QTemporaryDir target;
        QNetworkReply* second = network.manager->download(network.url("/slow"), target.filePath("x"));
        QTest::qWait(200);
        network.manager->abortAll();
        QCOMPARE(finish(first, 1000).error, QNetworkReply::OperationCanceledError);
        QCOMPARE(finish(second, 1000).error, QNetworkReply::OperationCanceledError);
    }
};

QTEST_GUILESS_MAIN(TestNetworkPlugin)
#include "tst_networkplugin.moc"
