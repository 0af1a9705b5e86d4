// The errors plugin in a real plugin host: a copy of the fixture plugin, "reporter", reports errors through the
// error event as a failing plugin does, and the error manager keeps, merges, drops and removes them.
#include <libupdater/IUpdaterErrorManager.h>
#include <libupdater/UpdaterPluginInfo.h>

#include "BundledPlugins.h"

#include <QtTest/QSignalSpy>
#include <QtTest/QTest>

using namespace tvl::updater;

namespace {

/// Loads the errors plugin (with the descriptor data `data`, else the bundled descriptor) and the reporter.
IUpdaterErrorManager* start(Host& host, const QString& data = QString())
{
    addBundled(host.dir, "errors");
    if (!data.isEmpty())
        host.dir.write("errors.updaterplugin", "name = 'errors'\ndata = { " + data + " }\n");
    if (!host.load({"reporter|soft_depends = { 'errors' }"}))
        return nullptr;
    return host.manager->api()->getObject<IUpdaterErrorManager>();
}

/// "post <hexadecimal code> <text>[|<details>]" through the reporter; true when the call reached it.
bool post(Host& host, const QString& operation)
{
    const QString text = operation.section(' ', 2);
    return host.manager->api()->callInPlugin("reporter", "postError", Q_ARG(int, operation.section(' ', 1, 1).toInt(nullptr, 16)),
                                             Q_ARG(QString, text.section('|', 0, 0)), Q_ARG(QString, text.section('|', 1)));
}

int occurrences(IUpdaterErrorManager* errors, const UpdaterError& error)
{
    int count = -1;
    QMetaObject::invokeMethod(errors, "occurrences", Q_RETURN_ARG(int, count), Q_ARG(tvl::updater::UpdaterError, error));
    return count;
}

/// "<id> <text>|<details> x<occurrences>" of every error kept, oldest first.
QStringList describe(IUpdaterErrorManager* errors)
{
    QStringList kept;
    for (const UpdaterError& error : errors->errors())
        kept.append(QString("%1 %2|%3 x%4").arg(error.errorId(), error.text(), error.details()).arg(occurrences(errors, error)));
    return kept;
}

} // namespace

class TestErrorsPlugin : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { registerUpdaterErrorMetaType(); }
    void cleanup() { QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete); }

    void keeps_data()
    {
        QTest::addColumn<QString>("data");           // of the errors plugin's descriptor; empty: the bundled one
        QTest::addColumn<QStringList>("operations"); // post <code> <text>|<details>, remove <id>, clear
        QTest::addColumn<QStringList>("kept");
        QTest::addColumn<int>("modified");

        QTest::newRow("one error with details") << QString() << QStringList{"post 20005 Disk full|/dev/sda1: 0 bytes free"}
                                                << QStringList{"U04020005 Disk full|/dev/sda1: 0 bytes free x1"} << 1;
        QTest::newRow("a code with its own level") << QString() << QStringList{"post 1040007 Game crashed"}
                                                   << QStringList{"U01040007 Game crashed| x1"} << 1;
        QTest::newRow("the same error again: kept once, counted, moved last")
            << QString() << QStringList{"post 20005 Disk full|a", "post 10001 Timeout", "post 20005 Disk full|a"}
            << QStringList{"U04010001 Timeout| x1", "U04020005 Disk full|a x2"} << 3;
        QTest::newRow("the same identifier with other details: kept apart")
            << QString() << QStringList{"post 20005 Disk full|a", "post 20005 Disk full|b"}
            << QStringList{"U04020005 Disk full|a x1", "U04020005 Disk full|b x1"} << 2;
        QTest::newRow("a null error is not kept") << QString() << QStringList{"post 20005 "} << QStringList() << 0;
        QTest::newRow("beyond the capacity the oldest go")
            << "max_errors = 2" << QStringList{"post 1 A", "post 2 B", "post 1 A", "post 3 C"}
            << QStringList{"U04000001 A| x2", "U04000003 C| x1"} << 4;
        QTest::newRow("removal takes every error of the identifier")
            << QString() << QStringList{"post 20005 Disk full|a", "post 10001 Timeout", "post 20005 Disk full|b", "remove U04020005"}
            << QStringList{"U04010001 Timeout| x1"} << 4;
        QTest::newRow("removing what is not kept changes nothing")
            << QString() << QStringList{"post 10001 Timeout", "remove U04020005", "remove u04010001"}
            << QStringList{"U04010001 Timeout| x1"} << 1;
        QTest::newRow("clear, once with errors and once without") << QString() << QStringList{"post 10001 Timeout", "clear", "clear"}
                                                                  << QStringList() << 2;
    }

    void keeps()
    {
        QFETCH(QString, data);
        QFETCH(QStringList, operations);
        Host host;
        IUpdaterErrorManager* errors = start(host, data);
        QVERIFY(errors);
        QSignalSpy modified(errors, &IUpdaterErrorManager::errorsModified);
        QStringList reported;
        for (const QString& operation : operations) {
            if (operation.startsWith("post ")) {
                QVERIFY(post(host, operation));
                // Handled when kept: the reporter learns it from the event.
                const bool null = operation.section(' ', 2).isEmpty();
                reported.append(QString("reporter error %1 accepted %2")
                                    .arg(UpdaterError(operation.section(' ', 1, 1).toInt(nullptr, 16), "t", "").errorId())
                                    .arg(!null));
            } else if (operation.startsWith("remove ")) {
                errors->removeError(operation.section(' ', 1));
            } else {
                errors->clear();
            }
        }
        QCOMPARE(host.journal->filter("reporter error "), reported);
        QTEST(describe(errors), "kept");
        QTEST(int(modified.count()), "modified");
        const QList<UpdaterError> kept = errors->errors();
        QCOMPARE(errors->lastError().isNull(), kept.isEmpty());
        if (!kept.isEmpty())
            QCOMPARE(errors->lastError().text(), kept.last().text());
    }

    void outlivesTheReporter()
    {
        Host host;
        IUpdaterErrorManager* errors = start(host);
        QVERIFY(errors);
        int capacity = 0;
        QVERIFY(QMetaObject::invokeMethod(errors, "capacity", Q_RETURN_ARG(int, capacity)));
        QCOMPARE(capacity, 100);

        // The reporter's error is of its own class, whose code goes with its library.
        QVERIFY(post(host, "post 80003 Installer failed|exit code 2"));
        UpdaterPluginInfo* reporter = host.record("reporter");
        QSignalSpy unloaded(reporter, &UpdaterPluginInfo::unloaded);
        QVERIFY(host.manager->unloadPlugin(reporter));
        QVERIFY(unloaded.wait());
        QVERIFY(!libraryMapped(host.dir.library("reporter")));

        const UpdaterError kept = errors->lastError();
        QCOMPARE(QStringList({kept.errorId(), kept.text(), kept.html(), kept.details()}),
                 QStringList({"U04080003", "Installer failed", "Installer failed", "exit code 2"}));
        QCOMPARE(kept.category(), quint32(UpdaterError::InstallerErrorCategory));
    }
};

QTEST_GUILESS_MAIN(TestErrorsPlugin)
#include "tst_errorsplugin.moc"
