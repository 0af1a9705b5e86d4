#include <libupdater/IniSettingsProvider.h>

#include <QtCore/QPointer>
#include <QtCore/QSettings>
#include <QtCore/QTemporaryDir>
#include <QtTest/QtTest>

#include <memory>

using namespace tvl::updater;

namespace {

QString s(const char* text)
{
    return QString::fromUtf8(text);
}

} // namespace

class TestIniSettings : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();

    void read_data();
    void read();
    void dottedWriteReplacesLiteralEntry();
    void emptyKeyWritesNothing();
    void ownSettingsWriteTheFile();
    void clear();

private:
    QString writeIni(const QVariantMap& entries);
    QVariantMap readBack(const QString& path);

    QTemporaryDir m_dir;
    int m_serial = 0;
};

void TestIniSettings::initTestCase()
{
    QStandardPaths::setTestModeEnabled(true);
    QVERIFY(m_dir.isValid());
}

// An INI file written by QSettings, under a name this process has not opened yet, so that
// it is parsed from disk the way a new process would (QSettings caches what it wrote).
QString TestIniSettings::writeIni(const QVariantMap& entries)
{
    const QString written = m_dir.filePath(QStringLiteral("written%1.ini").arg(++m_serial));
    {
        QSettings settings(written, QSettings::IniFormat);
        for (auto entry = entries.constBegin(); entry != entries.constEnd(); ++entry)
            settings.setValue(entry.key(), entry.value());
    }
    const QString fresh = m_dir.filePath(QStringLiteral("fresh%1.ini").arg(m_serial));
    if (!QFile::copy(written, fresh))
        qFatal("cannot copy %s", qPrintable(written));
    return fresh;
}

// Every entry of the file at `path`, as a new process reads it.
QVariantMap TestIniSettings::readBack(const QString& path)
{
    const QString copy = m_dir.filePath(QStringLiteral("copy%1.ini").arg(++m_serial));
    QVariantMap entries;
    if (!QFile::copy(path, copy))
        return entries;
    QSettings settings(copy, QSettings::IniFormat);
    const QStringList keys = settings.allKeys();
    for (const QString& key : keys)
        entries.insert(key, settings.value(key));
    return entries;
}

void TestIniSettings::read_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QVariant>("expected");

    QTest::newRow("dotted") << s("display.width") << QVariant(s("800"));
    QTest::newRow("slashed") << s("display/width") << QVariant(s("800"));
    QTest::newRow("top level") << s("name") << QVariant(s("launcher"));
    QTest::newRow("absent") << s("display.height") << QVariant();
    QTest::newRow("group") << s("display") << QVariant();
}

void TestIniSettings::read()
{
    QFETCH(QString, key);
    QFETCH(QVariant, expected);

    IniSettingsProvider provider(writeIni({{s("display/width"), 800}, {s("name"), s("launcher")}}),
                                 ISettingsProvider::PersistentProvider);
    QCOMPARE(provider.type(), ISettingsProvider::PersistentProvider);

    const QVariant result = provider.getSetting(key);
    QCOMPARE(result.metaType(), expected.metaType());
    QCOMPARE(result, expected);
    QCOMPARE(provider.keys(), (QStringList{s("display/width"), s("name")}));
}

void TestIniSettings::dottedWriteReplacesLiteralEntry()
{
    const QString path = writeIni({{s("a.b"), s("literal")}, {s("c"), s("kept")}});
    QPointer<QSettings> settings = new QSettings(path, QSettings::IniFormat);
    auto provider =
        std::make_unique<IniSettingsProvider>(settings.data(), ISettingsProvider::RuntimeProvider);
    QCOMPARE(provider->getSetting(s("a.b")), QVariant());
    QCOMPARE(provider->keys(), (QStringList{s("a.b"), s("c")}));

    provider->setSetting(s("a.b"), 1);
    QCOMPARE(provider->keys(), (QStringList{s("a/b"), s("c")}));
    QCOMPARE(provider->getSetting(s("a.b")), QVariant(1));

    // The settings object stays the caller's.
    provider.reset();
    QVERIFY(settings);
    settings->sync();
    QCOMPARE(readBack(path), (QVariantMap{{s("a/b"), s("1")}, {s("c"), s("kept")}}));
    delete settings.data();
}

void TestIniSettings::emptyKeyWritesNothing()
{
    IniSettingsProvider provider(writeIni({{s("a/b"), 1}, {s("c"), 2}}),
                                 ISettingsProvider::PersistentProvider);
    provider.setSetting(QString(), 3);
    QCOMPARE(provider.keys(), (QStringList{s("a/b"), s("c")}));
}

void TestIniSettings::ownSettingsWriteTheFile()
{
    const QString path = m_dir.filePath(s("own.ini"));
    auto provider =
        std::make_unique<IniSettingsProvider>(path, ISettingsProvider::PersistentProvider);
    provider->setSetting(s("x.y"), 5);
    provider->setSetting(s("z"), s("text"));

    // The provider's own QSettings goes with it and writes the file on its way out.
    provider.reset();
    QCOMPARE(readBack(path), (QVariantMap{{s("x/y"), s("5")}, {s("z"), s("text")}}));
}

void TestIniSettings::clear()
{
    const QString path = writeIni({{s("a/b"), 1}, {s("c"), 2}});
    auto provider =
        std::make_unique<IniSettingsProvider>(path, ISettingsProvider::PersistentProvider);

    provider->clear();
    QCOMPARE(provider->keys(), QStringList());
    QCOMPARE(provider->getSetting(s("a.b")), QVariant());

    provider.reset();
    QCOMPARE(readBack(path), QVariantMap());
}

QTEST_GUILESS_MAIN(TestIniSettings)
#include "tst_inisettings.moc"
