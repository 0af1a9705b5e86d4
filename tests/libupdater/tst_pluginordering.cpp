#include <libupdater/UpdaterPluginInfo.h>
#include <libupdater/UpdaterPluginInfo_p.h>
#include <libupdater/UpdaterPluginsManager.h>
#include <libupdater/UpdaterPluginsManager_p.h>

#include <LogCapture.h>

#include <QtCore/QFile>
#include <QtCore/QTemporaryDir>
#include <QtTest/QTest>

#include <algorithm>

using namespace tvl::updater;

namespace {

/// Records read from descriptors written as "<name>|<further Lua lines>", in list order.
class Records
{
public:
    explicit Records(const QStringList& descriptors)
    {
        for (const QString& descriptor : descriptors) {
            const QString name = descriptor.section(QLatin1Char('|'), 0, 0);
            QFile file(m_dir.filePath(name + QStringLiteral(".updaterplugin")));
            if (!file.open(QIODevice::WriteOnly))
                qFatal("cannot write a descriptor");
            file.write(QStringLiteral("name = '%1'\n%2").arg(name, descriptor.section(QLatin1Char('|'), 1)).toUtf8());
            file.close();
            auto* info = new UpdaterPluginInfo;
            if (!UpdaterPluginInfoPrivate::get(info)->read(file.fileName()))
                qFatal("cannot read %s", qPrintable(descriptor));
            all.append(info);
        }
    }
    ~Records() { qDeleteAll(all); }

    UpdaterPluginInfo* get(const QString& name) const
    {
        auto it = std::find_if(all.cbegin(), all.cend(), [&](UpdaterPluginInfo* info) { return info->name() == name; });
        return it == all.cend() ? nullptr : *it;
    }

    void resolveAll()
    {
        for (UpdaterPluginInfo* info : std::as_const(all))
            UpdaterPluginInfoPrivate::get(info)->resolveDependencies(all);
    }

    /// "<plugin>: <dependency>=<hard>, ..." for every record with a resolved dependency.
    QStringList maps() const
    {
        QStringList result;
        for (UpdaterPluginInfo* info : all) {
            QStringList entries;
            for (const auto& [name, hard] : info->resolvedDependencies())
                entries.append(name + (hard ? QStringLiteral("=true") : QStringLiteral("=false")));
            entries.sort();
            if (!entries.isEmpty())
                result.append(info->name() + QStringLiteral(": ") + entries.join(QStringLiteral(", ")));
        }
        return result;
    }

    QList<UpdaterPluginInfo*> all;

private:
    QTemporaryDir m_dir;
};

QStringList names(const QList<UpdaterPluginInfo*>& records)
{
    QStringList result;
    for (UpdaterPluginInfo* info : records)
        result.append(info->name());
    return result;
}

} // namespace

class TestPluginOrdering : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void resolve_data();
    void resolve();
    void sort_data();
    void sort();
    void cycleReportedOnce();
    void compareByGui();
    void preSortGroupsGui();

private:
    LogCapture m_log;
};

void TestPluginOrdering::resolve_data()
{
    QTest::addColumn<QStringList>("descriptors");
    QTest::addColumn<bool>("result");
    QTest::addColumn<QStringList>("maps");
    QTest::addColumn<QStringList>("log");

    QTest::newRow("hard by name") << QStringList{"p|depends = {'x'}", "x"} << true << QStringList{"p: x=true"}
                                  << QStringList{"3 Plugin p depends on x"};
    QTest::newRow("real plugin before its replacer")
        << QStringList{"p|depends = {'x'}", "x", "y|replace = {'x'}"} << true << QStringList{"p: x=true"}
        << QStringList{"3 Plugin p depends on x"};
    QTest::newRow("replacer before the real plugin")
        << QStringList{"p|depends = {'x'}", "y|replace = {'x'}", "x"} << true << QStringList{"p: x=true, y=false"}
        << QStringList{"3 Plugin p depends on x", "2 \t=> Plugin p depends on y"};
    QTest::newRow("only replacers")
        << QStringList{"p|depends = {'x'}", "y|replace = {'x'}", "z|replace = {'w', 'x'}"} << true
        << QStringList{"p: y=false, z=false"}
        << QStringList{"3 Plugin p depends on x", "2 \t=> Plugin p depends on y", "2 \t=> Plugin p depends on z"};
    QTest::newRow("missing hard dependency skips the rest")
        << QStringList{"p|depends = {'m', 'x'}; soft_depends = {'x'}; required_by = {'r'}", "x", "r"} << false
        << QStringList() << QStringList{"3 Plugin p depends on m", "4 Plugin m not found"};
    QTest::newRow("missing after a found one")
        << QStringList{"p|depends = {'x', 'm'}", "x"} << false << QStringList{"p: x=true"}
        << QStringList{"3 Plugin p depends on x", "3 Plugin p depends on m", "4 Plugin m not found"};
    QTest::newRow("soft") << QStringList{"p|soft_depends = {'x', 'absent'}", "x"} << true << QStringList{"p: x=false"}
                          << QStringList{"3 Plugin p should be loaded before x",
                                         "3 Plugin p should be loaded before absent"};
    QTest::newRow("soft through a replacer")
        << QStringList{"p|soft_depends = {'x'}", "y|replace = {'x'}", "x"} << true
        << QStringList{"p: x=false, y=false"}
        << QStringList{"3 Plugin p should be loaded before x", "2 \t=> Plugin p depends on y"};
    QTest::newRow("injection") << QStringList{"p|required_by = {'r'}", "r"} << true << QStringList{"r: p=false"}
                               << QStringList{"2 Injecting dependency 'p' in 'r'"};
    QTest::newRow("injection through a replaced name")
        << QStringList{"p|required_by = {'x'}", "r|replace = {'x'}"} << true << QStringList{"r: p=false"}
        << QStringList{"2 Injecting dependency 'p' in 'r'"};
    QTest::newRow("no injection into a dependent")
        << QStringList{"p|required_by = {'r'}", "r|depends = {'p'}"} << true << QStringList()
        << QStringList{"2 Injecting dependency 'p' in 'r'"};
    QTest::newRow("no injection into a dependency")
        << QStringList{"p|required_by = {'r'}; depends = {'r'}", "r"} << true << QStringList{"p: r=true"}
        << QStringList{"3 Plugin p depends on r", "2 Injecting dependency 'p' in 'r'"};
}

void TestPluginOrdering::resolve()
{
    QFETCH(QStringList, descriptors);
    QFETCH(bool, result);

    Records records(descriptors);
    m_log.take();
    QCOMPARE(UpdaterPluginInfoPrivate::get(records.get(QStringLiteral("p")))->resolveDependencies(records.all), result);
    QTEST(records.maps(), "maps");
    QTEST(m_log.lines(QStringLiteral("libupdater/UpdaterPluginInfo")), "log");
}

void TestPluginOrdering::sort_data()
{
    QTest::addColumn<QStringList>("descriptors");
    QTest::addColumn<bool>("hasGui");
    QTest::addColumn<QStringList>("disabled");
    QTest::addColumn<QStringList>("enabled");
    QTest::addColumn<QStringList>("start");
    QTest::addColumn<QStringList>("order");
    QTest::addColumn<QStringList>("log");

    const QStringList none;
    QTest::newRow("chain") << QStringList{"a|depends = {'b'}", "b|depends = {'c'}", "c"} << false << none << none
                           << QStringList{"a"} << QStringList{"c", "b", "a"} << none;
    QTest::newRow("shared dependency placed once")
        << QStringList{"a|depends = {'c'}", "b|depends = {'c'}", "c"} << false << none << none
        << QStringList{"a", "b"} << QStringList{"c", "a", "b"} << none;
    QTest::newRow("start already placed") << QStringList{"a|depends = {'c'}", "c"} << false << none << none
                                          << QStringList{"c", "a"} << QStringList{"c", "a"} << none;
    QTest::newRow("disabled hard dependency placed") << QStringList{"a|depends = {'b'}", "b"} << false
                                                     << QStringList{"b"} << none << QStringList{"a"}
                                                     << QStringList{"b", "a"} << none;
    QTest::newRow("disabled soft dependency left out") << QStringList{"a|soft_depends = {'b'}", "b"} << false
                                                       << QStringList{"b"} << none << QStringList{"a"}
                                                       << QStringList{"a"} << none;
    QTest::newRow("soft dependency placed") << QStringList{"a|soft_depends = {'b'}", "b"} << false << none << none
                                            << QStringList{"a"} << QStringList{"b", "a"} << none;
    QTest::newRow("soft, not autoload") << QStringList{"a|soft_depends = {'b'}", "b|autoload = false"} << false
                                        << none << none << QStringList{"a"} << QStringList{"a"} << none;
    QTest::newRow("soft, not autoload, enabled")
        << QStringList{"a|soft_depends = {'b'}", "b|autoload = false"} << false << none << QStringList{"b"}
        << QStringList{"a"} << QStringList{"b", "a"} << none;
    QTest::newRow("hard, not autoload") << QStringList{"a|depends = {'b'}", "b|autoload = false"} << false << none
                                        << none << QStringList{"a"} << QStringList{"b", "a"} << none;
    QTest::newRow("hard GUI dependency without GUI")
        << QStringList{"a|depends = {'g'}", "g|needGUI = true"} << false << none << none << QStringList{"a"}
        << QStringList{"a"} << none;
    QTest::newRow("GUI dependency with GUI") << QStringList{"a|soft_depends = {'g'}", "g|needGUI = true"} << true
                                             << none << none << QStringList{"a"} << QStringList{"g", "a"} << none;
    QTest::newRow("replacer of a hard dependency")
        << QStringList{"a|depends = {'x'}", "y|replace = {'x'}"} << false << none << none << QStringList{"a"}
        << QStringList{"y", "a"} << none;
    QTest::newRow("disabled replacer of a hard dependency")
        << QStringList{"a|depends = {'x'}", "y|replace = {'x'}"} << false << QStringList{"y"} << none
        << QStringList{"a"} << QStringList{"a"} << none;
    QTest::newRow("injected") << QStringList{"a", "b|required_by = {'a'}"} << false << none << none
                              << QStringList{"a"} << QStringList{"b", "a"} << none;
    QTest::newRow("cycle") << QStringList{"a|depends = {'b'}", "b|depends = {'a'}"} << false << none << none
                           << QStringList{"a"} << QStringList{"b", "a"}
                           << QStringList{"4 Dependency cycle: a -> b -> a"};
    QTest::newRow("longer cycle") << QStringList{"a|depends = {'b'}", "b|depends = {'c'}", "c|depends = {'a'}"}
                                  << false << none << none << QStringList{"b"} << QStringList{"a", "c", "b"}
                                  << QStringList{"4 Dependency cycle: b -> c -> a -> b"};
}

void TestPluginOrdering::sort()
{
    QFETCH(QStringList, descriptors);
    QFETCH(bool, hasGui);
    QFETCH(QStringList, disabled);
    QFETCH(QStringList, enabled);
    QFETCH(QStringList, start);

    Records records(descriptors);
    records.resolveAll();
    UpdaterPluginsManager manager;
    UpdaterPluginsManagerPrivate* d = UpdaterPluginsManagerPrivate::get(&manager);
    d->hasGui = hasGui;
    m_log.take();

    QList<UpdaterPluginInfo*> visited;
    QList<UpdaterPluginInfo*> order;
    for (const QString& name : std::as_const(start))
        d->sort_plugins(records.get(name), visited, order, disabled, enabled);
    QTEST(names(order), "order");
    QTEST(m_log.lines(QStringLiteral("libupdater/UpdaterPluginsManager")), "log");
}

void TestPluginOrdering::cycleReportedOnce()
{
    Records records({QStringLiteral("a|depends = {'b'}"), QStringLiteral("b|depends = {'a'}")});
    records.resolveAll();
    UpdaterPluginsManager manager;
    UpdaterPluginsManagerPrivate* d = UpdaterPluginsManagerPrivate::get(&manager);
    m_log.take();

    // Each pass is a load of its own; the cycle is the same from whichever side it is entered.
    for (const char* start : {"a", "b", "a"}) {
        QList<UpdaterPluginInfo*> visited;
        QList<UpdaterPluginInfo*> order;
        d->sort_plugins(records.get(QLatin1String(start)), visited, order, {}, {});
        QCOMPARE(order.size(), 2);
        QCOMPARE(order.last()->name(), QLatin1String(start));
    }
    QCOMPARE(m_log.lines(QStringLiteral("libupdater/UpdaterPluginsManager")),
             QStringList{QStringLiteral("4 Dependency cycle: a -> b -> a")});
}

void TestPluginOrdering::compareByGui()
{
    Records records({QStringLiteral("g|needGUI = true"), QStringLiteral("h|needGUI = true"), QStringLiteral("c")});
    UpdaterPluginInfo* g = records.get(QStringLiteral("g"));
    UpdaterPluginInfo* h = records.get(QStringLiteral("h"));
    UpdaterPluginInfo* c = records.get(QStringLiteral("c"));
    QVERIFY(compare_by_gui(g, c));
    QVERIFY(!compare_by_gui(c, g));
    QVERIFY(!compare_by_gui(g, h));
    QVERIFY(!compare_by_gui(c, c));
}

void TestPluginOrdering::preSortGroupsGui()
{
    // Enough records for the introsort to go beyond insertion sort.
    QStringList descriptors;
    for (int i = 0; i < 40; ++i)
        descriptors.append(QStringLiteral("p%1|needGUI = %2").arg(i).arg(i % 3 == 0 ? "true" : "false"));
    Records many(descriptors);
    std::sort(many.all.begin(), many.all.end(), compare_by_gui);
    const auto needsGui = [](UpdaterPluginInfo* info) { return info->needGUI(); };
    const auto firstConsole = std::find_if_not(many.all.cbegin(), many.all.cend(), needsGui);
    QCOMPARE(firstConsole - many.all.cbegin(), 14);
    QVERIFY(std::none_of(firstConsole, many.all.cend(), needsGui));
}

QTEST_MAIN(TestPluginOrdering)
#include "tst_pluginordering.moc"
