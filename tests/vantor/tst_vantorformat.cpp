// The repository format on its own: chunk boundaries, path gates, signed records.
#include <vantor/Chunker_p.h>
#include <vantor/Crypto_p.h>
#include <vantor/Manifest_p.h>
#include <vantor/ReleaseRecord_p.h>
#include <vantor/VantorTypes.h>
#include <vantor/Zstd_p.h>

#include <QtTest/QtTest>

#include <random>

using namespace tvl::vantor;

namespace {

QByteArray randomBytes(qsizetype size, quint32 seed)
{
    std::mt19937 generator(seed);
    QByteArray bytes(size, Qt::Uninitialized);
    for (char& byte : bytes)
        byte = char(generator());
    return bytes;
}

QList<QByteArray> chunksOf(const QByteArray& data, const Chunker& chunker)
{
    QList<QByteArray> chunks;
    for (qint64 offset = 0; offset < data.size();) {
        const qint64 length = chunker.cut(reinterpret_cast<const uchar*>(data.constData()) + offset,
                                          std::min<qint64>(data.size() - offset, chunker.maximum()));
        chunks.append(Sha256::hex(QByteArrayView(data.constData() + offset, length)));
        offset += length;
    }
    return chunks;
}

} // namespace

class TestVantorFormat : public QObject
{
    Q_OBJECT

private slots:
    void chunkSizesStayWithinLimits()
    {
        const Chunker chunker;
        const QByteArray data = randomBytes(8 * 1024 * 1024, 1);
        qint64 offset = 0, count = 0;
        while (offset < data.size()) {
            const qint64 length = chunker.cut(reinterpret_cast<const uchar*>(data.constData()) + offset,
                                              std::min<qint64>(data.size() - offset, chunker.maximum()));
            QVERIFY(length <= chunker.maximum());
            QVERIFY(length >= chunker.minimum() || offset + length == data.size());
            offset += length;
            ++count;
        }
        // Normalised chunking keeps the mean near the average (64 KiB): 8 MiB gives about 128.
        QVERIFY2(count > 80 && count < 180, qPrintable(QString::number(count)));
        // Zeros never match the mask before the maximum.
        const QByteArray zeros(1024 * 1024, '\0');
        QCOMPARE(chunker.cut(reinterpret_cast<const uchar*>(zeros.constData()), zeros.size()), chunker.maximum());
    }

    void editsMoveBoundariesNearbyOnly_data()
    {
        QTest::addColumn<int>("offset");
        QTest::addColumn<int>("removed");
        QTest::addColumn<QByteArray>("inserted");
        QTest::newRow("insert in the middle") << 3'000'000 << 0 << QByteArray(777, 'x');
        QTest::newRow("remove in the middle") << 3'000'000 << 5000 << QByteArray();
        QTest::newRow("insert at the start") << 0 << 0 << QByteArray("prefix");
        QTest::newRow("rewrite 1 MiB") << 2'000'000 << 1 << randomBytes(1024 * 1024, 9);
    }

    void editsMoveBoundariesNearbyOnly()
    {
        QFETCH(int, offset);
        QFETCH(int, removed);
        QFETCH(QByteArray, inserted);
        const Chunker chunker;
        const QByteArray before = randomBytes(6 * 1024 * 1024, 2);
        QByteArray after = before;
        after.replace(offset, removed + (inserted.size() > 1000 ? inserted.size() - 1 : 0), inserted);
        const QList<QByteArray> old = chunksOf(before, chunker), edited = chunksOf(after, chunker);
        int fresh = 0;
        for (const QByteArray& chunk : edited)
            fresh += old.contains(chunk) ? 0 : 1;
        // The chunks around the edit change (and those the edit covers), never the rest.
        const int covered = int(inserted.size() / chunker.average());
        QVERIFY2(fresh >= 1 && fresh <= covered + 3, qPrintable(QStringLiteral("%1 new chunks").arg(fresh)));
    }

    void pathGate_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("linkTarget");
        QTest::addColumn<bool>("safe");
        QTest::newRow("plain") << "bin/game" << QString() << true;
        QTest::newRow("dot file") << "data/.hidden" << QString() << true;
        QTest::newRow("absolute") << "/etc/passwd" << QString() << false;
        QTest::newRow("parent") << "../outside" << QString() << false;
        QTest::newRow("parent inside") << "bin/../../outside" << QString() << false;
        QTest::newRow("dot part") << "bin/./game" << QString() << false;
        QTest::newRow("empty part") << "bin//game" << QString() << false;
        QTest::newRow("own records") << ".vantor/state.json" << QString() << false;
        QTest::newRow("link down") << "bin/lib.so" << "lib.so.1" << true;
        QTest::newRow("link up inside") << "bin/x/link" << "../../data/file" << true;
        QTest::newRow("link above the tree") << "bin/link" << "../../etc" << false;
        QTest::newRow("link absolute") << "bin/link" << "/etc/passwd" << false;
        QTest::newRow("link climbs after a step down") << "link" << "bin/../.." << false;
        QTest::newRow("link into the records") << "bin/link" << "../.vantor/state.json" << false;
    }

    void pathGate()
    {
        QFETCH(QString, path);
        QFETCH(QString, linkTarget);
        QFETCH(bool, safe);
        QCOMPARE(linkTarget.isNull() ? isSafeRelativePath(path) : isSafeSymlink(path, linkTarget), safe);
    }

    void manifestRefusesWhatLeavesTheTree_data()
    {
        QTest::addColumn<QString>("change");
        QTest::addColumn<bool>("unsafe");
        QTest::newRow("as published") << "" << false;
        QTest::newRow("file below a link") << "link/evil" << true;
        QTest::newRow("file below a file") << "bin/game/evil" << true;
        QTest::newRow("unknown chunk") << "unknown chunk" << false;
        QTest::newRow("sizes disagree") << "size" << false;
    }

    void manifestRefusesWhatLeavesTheTree()
    {
        QFETCH(QString, change);
        QFETCH(bool, unsafe);
        Manifest manifest;
        manifest.project = "demo";
        manifest.version = "1";
        const QByteArray content = "#!/bin/sh\necho 1\n", hash = Sha256::hex(content);
        manifest.chunks.insert(hash, {content.size(), 30});
        manifest.directories = {"bin"};
        manifest.files.append(Manifest::File{"bin/game", content.size(), true, hash, {hash}});
        manifest.symlinks.append(Manifest::Symlink{"link", "bin"});
        if (change == "unknown chunk")
            manifest.files[0].chunks = {QByteArray(64, 'a')};
        else if (change == "size")
            manifest.files[0].size += 1;
        else if (!change.isEmpty())
            manifest.files.append(Manifest::File{change, content.size(), false, hash, {hash}});
        Manifest parsed;
        QString error;
        bool unsafePath = false;
        QCOMPARE(parsed.fromJson(manifest.toJson(), &error, &unsafePath), change.isEmpty());
        QCOMPARE(unsafePath, unsafe);
        if (change.isEmpty()) {
            QCOMPARE(parsed.toJson(), manifest.toJson());
            QVERIFY(parsed.file("bin/game") && parsed.file("bin/game")->executable);
        }
    }

    void recordTrust_data()
    {
        QTest::addColumn<QString>("fault");
        QTest::addColumn<int>("error");
        QTest::newRow("good") << "" << int(ErrorCode::NoError);
        QTest::newRow("unknown key") << "key" << int(ErrorCode::UnknownKey);
        QTest::newRow("payload altered") << "payload" << int(ErrorCode::BadSignature);
        QTest::newRow("signature altered") << "signature" << int(ErrorCode::BadSignature);
        QTest::newRow("signed for another channel") << "channel" << int(ErrorCode::BadSignature);
        QTest::newRow("expired") << "expired" << int(ErrorCode::ExpiredRecord);
        QTest::newRow("not JSON") << "garbage" << int(ErrorCode::BadSignature);
    }

    void recordTrust()
    {
        QFETCH(QString, fault);
        QFETCH(int, error);
        QByteArray publicKey, secretKey, otherPublic, otherSecret;
        ed25519::generate(&publicKey, &secretKey);
        ed25519::generate(&otherPublic, &otherSecret);
        ReleaseRecord record;
        record.project = "demo";
        record.channel = fault == "channel" ? "beta" : "stable";
        record.version = "2.0";
        record.manifestSha256 = Sha256::hex("manifest");
        record.manifestSize = 123;
        record.serial = 7;
        record.published = QDateTime::currentDateTimeUtc();
        record.expires = record.published.addSecs(fault == "expired" ? -1 : 3600);
        QByteArray file = record.sign(fault == "key" ? otherSecret : secretKey);
        if (fault == "payload" || fault == "signature") {
            QJsonObject object = QJsonDocument::fromJson(file).object();
            const QString field = fault == "payload" ? "signed" : "signature";
            QByteArray decoded = QByteArray::fromBase64(object.value(field).toString().toLatin1());
            decoded.replace(fault == "payload" ? QByteArray("\"serial\":7") : decoded.left(1),
                            fault == "payload" ? QByteArray("\"serial\":9") : QByteArray(1, char(decoded.at(0) ^ 1)));
            object.insert(field, QString::fromLatin1(decoded.toBase64()));
            file = QJsonDocument(object).toJson();
        } else if (fault == "garbage") {
            file = "<html>not found</html>";
        }
        ReleaseRecord read;
        QString message;
        const ErrorCode code = read.verify(file, {publicKey}, "demo", "stable", QDateTime::currentDateTimeUtc(), &message);
        QCOMPARE(int(code), error);
        QCOMPARE(message.isEmpty(), error == 0);
        if (error == 0)
            QVERIFY(read.version == "2.0" && read.serial == 7 && read.manifestSha256 == record.manifestSha256);
    }

    void zstdRefusesWhatExceedsItsBound()
    {
        const QByteArray data = randomBytes(100'000, 3) + QByteArray(100'000, 'a');
        const QByteArray compressed = zstd::compress(data);
        QVERIFY(compressed.size() < data.size());
        QCOMPARE(zstd::decompress(compressed, data.size()), data);
        QVERIFY(zstd::decompress(compressed, data.size() - 1).isNull());
        QVERIFY(zstd::decompress(compressed.left(compressed.size() - 5), data.size()).isNull());
        QVERIFY(zstd::decompress("not zstd at all", 1000).isNull());
    }

    void progressTypes()
    {
        const std::tuple<qint64, qint64, double> rows[] = {{500, 0, 0}, {250, 1000, 0.25}, {1500, 1000, 1}, {-10, 1000, 0}};
        for (const auto& [done, total, fraction] : rows)
            QCOMPARE((Progress{QString(), {}, done, total}.fraction()), fraction);
        registerMetaTypes(); // queued connections find the types by these names
        QCOMPARE(QMetaType::fromName("tvl::vantor::Progress"), QMetaType::fromType<Progress>());
        QCOMPARE(QMetaType::fromName("tvl::vantor::UpdateResultPtr"), QMetaType::fromType<UpdateResultPtr>());
    }
};

QTEST_GUILESS_MAIN(TestVantorFormat)
#include "tst_vantorformat.moc"
