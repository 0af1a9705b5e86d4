#include <libupdater/UpdaterPlugin.h>
#include <libupdater/UpdaterPluginInfo.h>
#include <libupdater/UpdaterPluginInfo_p.h>

#include <basix/ICISettings.h>

#include <LogCapture.h>
#include "fixtures/PluginScenario.h"

#include <QtCore/QPointer>
#include <QtTest/QSignalSpy>
#include <QtTest/QTest>

using namespace tvl::updater;

namespace {

const QString Source = QStringLiteral("libupdater/UpdaterPluginInfo");

UpdaterPluginInfoPrivate* d(UpdaterPluginInfo& info)
{
    return UpdaterPluginInfoPrivate::get(&info);
}

QVariantMap fieldsOf(UpdaterPluginInfo& info)
{
    return {{QStringLiteral("name"), info.name()},
            {QStringLiteral("autoload"), info.autoLoad()},
            {QStringLiteral("soft_depends"), info.softDependencies()},
            {QStringLiteral("depends"), info.dependencies()},
            {QStringLiteral("required_by"), info.requiredBy()},
            {QStringLiteral("replace"), info.replacedPlugins()},
            {QStringLiteral("mandatory"), info.isMandatory()},
            {QStringLiteral("data"), d(info)->data},
            {QStringLiteral("needGUI"), info.needGUI()},
            {QStringLiteral("unsafe"), info.unsafe()}};
}

} // namespace

class TestPluginInfo : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void read_data();
    void read();
    void loadAndUnload_data();
    void loadAndUnload();
    void unloadWithoutPluginObject();
    void refused_data();
    void refused();
    void destroyLoaded();

private:
    PluginDir m_dir;
    LogCapture m_log;
};

void TestPluginInfo::read_data()
{
    QTest::addColumn<QString>("source");
    QTest::addColumn<bool>("ok");
    QTest::addColumn<QVariantMap>("fields"); // those that differ from the defaults
    QTest::addColumn<bool>("errorLogged");

    const QStringList none;
    QTest::newRow("defaults") << "name = 'a'" << true << QVariantMap{{"name", "a"}} << false;
    QTest::newRow("every key")
        << "name = 'b'; autoload = false; soft_depends = {'s1', 's2'}; depends = {'d'}\n"
           "required_by = {'r1', 'r2'}; replace = {'x'}; mandatory = true; needGUI = true\n"
           "unsafe = true; data = { theme = 'dark' }"
        << true
        << QVariantMap{{"name", "b"}, {"autoload", false}, {"soft_depends", QStringList{"s1", "s2"}},
                       {"depends", QStringList{"d"}}, {"required_by", QStringList{"r1", "r2"}},
                       {"replace", QStringList{"x"}}, {"mandatory", true}, {"needGUI", true}, {"unsafe", true},
                       {"data", QVariantMap{{"theme", "dark"}}}}
        << false;
    QTest::newRow("single strings")
        << "name = 'c'; depends = 'd'; soft_depends = 's'; required_by = 'r'; replace = 'x'" << true
        << QVariantMap{{"name", "c"}, {"depends", QStringList{"d"}}, {"soft_depends", QStringList{"s"}},
                       {"required_by", QStringList{"r"}}, {"replace", QStringList{"x"}}}
        << false;
    QTest::newRow("data string") << "name = 'e'; data = 'text'" << true
                                 << QVariantMap{{"name", "e"}, {"data", "text"}} << false;
    QTest::newRow("data number") << "name = 'e'; data = 42" << true
                                 << QVariantMap{{"name", "e"}, {"data", qlonglong(42)}} << false;
    QTest::newRow("data list") << "name = 'e'; data = {1, 'two'}" << true
                               << QVariantMap{{"name", "e"}, {"data", QVariantList{qlonglong(1), "two"}}} << false;
    QTest::newRow("data false") << "name = 'e'; data = false" << true
                                << QVariantMap{{"name", "e"}, {"data", false}} << false;
    QTest::newRow("no name") << "autoload = false" << false << QVariantMap() << false;
    QTest::newRow("syntax error") << "name = = 'a'" << false << QVariantMap() << true;
    QTest::newRow("evaluation error") << "name = 'a'\nerror('broken')" << false << QVariantMap() << true;
}

void TestPluginInfo::read()
{
    QFETCH(QString, source);
    QFETCH(bool, ok);
    QFETCH(QVariantMap, fields);
    QFETCH(bool, errorLogged);

    m_dir.write(QStringLiteral("read.updaterplugin"), source);
    const QString file = m_dir.path() + QStringLiteral("/read.updaterplugin");
    m_log.take();
    UpdaterPluginInfo info;
    QCOMPARE(d(info)->read(file), ok);

    QStringList expectedLog;
    if (errorLogged) {
        tvl::ICISettings engine(file);
        QVERIFY(!engine.evaluate());
        expectedLog << QStringLiteral("5 ") + engine.errorString();
    }
    QCOMPARE(m_log.lines(Source), expectedLog);
    if (!ok)
        return;

    QVariantMap expected{{"name", QString()},         {"autoload", true},          {"soft_depends", QStringList()},
                         {"depends", QStringList()},  {"required_by", QStringList()}, {"replace", QStringList()},
                         {"mandatory", false},        {"data", QVariant()},         {"needGUI", false},
                         {"unsafe", false}};
    expected.insert(fields);
    QCOMPARE(fieldsOf(info), expected);
    QCOMPARE(info.path(), m_dir.path());
    QVERIFY(!info.isLoaded());
}

void TestPluginInfo::loadAndUnload_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("unloadLibrary");

    QTest::newRow("library unloaded") << "gone" << true;
    QTest::newRow("library kept") << "kept" << false;
}

void TestPluginInfo::loadAndUnload()
{
    QFETCH(QString, name);
    QFETCH(bool, unloadLibrary);

    m_dir.add(name, QString(), QStringLiteral("n = 3"));
    UpdaterPluginInfo info;
    QVERIFY(d(info)->read(m_dir.path() + QStringLiteral("/%1.updaterplugin").arg(name)));
    QVERIFY(d(info)->loadPlugin());
    QPointer<UpdaterPlugin> plugin = info.plugin();
    QVERIFY(plugin);
    QVERIFY(info.isLoaded());
    QCOMPARE(plugin->extraData().toMap().value(QStringLiteral("n")), QVariant(qlonglong(3)));
    QCOMPARE(plugin->parent(), d(info));
    QVERIFY(libraryMapped(m_dir.library(name)));
    QVERIFY(d(info)->loadPlugin());
    QCOMPARE(info.plugin(), plugin.data());

    QSignalSpy unloaded(&info, &UpdaterPluginInfo::unloaded);
    QVERIFY(d(info)->unloadPlugin(unloadLibrary));
    QVERIFY(!info.isLoaded());
    QVERIFY(!info.plugin());
    QVERIFY(plugin);
    QCOMPARE(unloaded.count(), 0);
    QVERIFY(unloaded.wait());
    QVERIFY(!plugin);
    QCOMPARE(unloaded.count(), 1);
    QCOMPARE(libraryMapped(m_dir.library(name)), !unloadLibrary);
    QCOMPARE(d(info)->loader != nullptr, !unloadLibrary);

    // Whatever the first unload kept, loading again and unloading with the library clears all.
    QVERIFY(d(info)->loadPlugin());
    QVERIFY(info.plugin());
    QVERIFY(d(info)->unloadPlugin(true));
    QVERIFY(unloaded.wait());
    QVERIFY(!libraryMapped(m_dir.library(name)));
}

void TestPluginInfo::unloadWithoutPluginObject()
{
    UpdaterPluginInfo info;
    QSignalSpy unloaded(&info, &UpdaterPluginInfo::unloaded);
    QVERIFY(d(info)->unloadPlugin(true));
    QVERIFY(!unloaded.wait(50));

    d(info)->loaded = true;
    QVERIFY(d(info)->unloadPlugin(true));
    QCOMPARE(unloaded.count(), 1);
    QVERIFY(!info.isLoaded());
}

void TestPluginInfo::refused_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("library"); // copied as the plugin's library; empty: none
    QTest::addColumn<QString>("text");    // else written as the plugin's library
    QTest::addColumn<bool>("loaderError");

    QTest::newRow("root object is a plain QObject") << "plain" << PLAIN_OBJECT_PLUGIN << QString() << false;
    QTest::newRow("not a Qt plugin") << "text" << QString() << "not a library" << true;
    QTest::newRow("no library") << "missing" << QString() << QString() << true;
}

void TestPluginInfo::refused()
{
    QFETCH(QString, name);
    QFETCH(QString, library);
    QFETCH(QString, text);
    QFETCH(bool, loaderError);

    m_dir.write(name + QStringLiteral(".updaterplugin"), QStringLiteral("name = '%1'").arg(name));
    if (!library.isEmpty())
        m_dir.copy(library, name);
    else if (!text.isEmpty())
        m_dir.write(QStringLiteral("lib%1.so").arg(name), text);

    UpdaterPluginInfo info;
    QVERIFY(d(info)->read(m_dir.path() + QStringLiteral("/%1.updaterplugin").arg(name)));
    m_log.take();
    QVERIFY(!d(info)->loadPlugin());
    QVERIFY(!info.isLoaded());
    QVERIFY(!info.plugin());
    QVERIFY(!d(info)->loader);

    const QStringList log = m_log.lines(Source);
    QCOMPARE(log.size(), loaderError ? 2 : 1);
    if (loaderError) // the loader's own words
        QVERIFY2(log.first().startsWith(QStringLiteral("5 ")) && log.first() != log.last(), qPrintable(log.first()));
    QCOMPARE(log.last(), QStringLiteral("5 Plugin instance is not an UpdaterPlugin"));
}

void TestPluginInfo::destroyLoaded()
{
    m_dir.add(QStringLiteral("destroyed"));
    QPointer<UpdaterPlugin> plugin;
    {
        UpdaterPluginInfo info;
        QVERIFY(d(info)->read(m_dir.path() + QStringLiteral("/destroyed.updaterplugin")));
        QVERIFY(d(info)->loadPlugin());
        plugin = info.plugin();
    }
    QVERIFY(!plugin);
    // The plugin object went at once; the library is not unloaded on this path.
    QVERIFY(libraryMapped(m_dir.library(QStringLiteral("destroyed"))));
    QTest::qWait(10);
}

QTEST_MAIN(TestPluginInfo)
#include "tst_plugininfo.moc"
