#include <libupdater/II18n.h>
#include <libupdater/INetworkManager.h>
#include <libupdater/ISettingsManager.h>
#include <libupdater/ISystemInfo.h>
#include <libupdater/ISystemSettingsProvider.h>
#include <libupdater/IUpdateEngine.h>
#include <libupdater/IUpdaterErrorManager.h>
#include <libupdater/IUpdaterNotification.h>

#include <QtTest/QTest>

using namespace tvl::updater;

Q_DECLARE_METATYPE(const QMetaObject*)

// The class name, "<signature> <parameter names>" for each signal of its own (other methods are
// marked) and "<enum>: <key>=<value>..." for each enum of its own.
static QStringList describe(const QMetaObject* meta)
{
    QStringList lines{QString::fromLatin1(meta->className())};
    for (int i = meta->methodOffset(); i < meta->methodCount(); ++i) {
        const QMetaMethod method = meta->method(i);
        lines << QString::fromLatin1(method.methodSignature() + ' ' + method.parameterNames().join(',')).trimmed()
                     + (method.methodType() == QMetaMethod::Signal ? "" : " (not a signal)");
    }
    for (int i = meta->enumeratorOffset(); i < meta->enumeratorCount(); ++i) {
        const QMetaEnum metaEnum = meta->enumerator(i);
        lines << QString::fromLatin1(metaEnum.name()) + ':';
        for (int k = 0; k < metaEnum.keyCount(); ++k)
            lines.last() += QStringLiteral(" %1=%2").arg(QLatin1String(metaEnum.key(k))).arg(metaEnum.value(k));
    }
    return lines;
}

class TestServiceInterfaces : public QObject
{
    Q_OBJECT

private slots:
    void metaObjects_data()
    {
        QTest::addColumn<const QMetaObject*>("metaObject");
        QTest::addColumn<QStringList>("description");
        QTest::newRow("engine") << &IUpdateEngine::staticMetaObject << QStringList{
            "tvl::updater::IUpdateEngine", "projectChanged(QString) project", "stateChanged(tvl::updater::IUpdateEngine::UpdateState)",
            "stateChanged(QString,tvl::updater::IUpdateEngine::UpdateState) project,", "progress(tvl::vantor::Progress)",
            "computationProgress(double)", "projectUpdated(tvl::vantor::UpdateResultPtr) result", "allProjectsUpdated()",
            "UpdateStateE: Initializing=0 CheckingUpdates=2 ElevationRequested=4 Updating=8 UpToDate=16 Executable=32 "
            "UpdatePending=64 UpdateBlockedByProcess=128 UpdateFailed=256"};
        QTest::newRow("notification") << &IUpdaterNotification::staticMetaObject << QStringList{
            "tvl::updater::IUpdaterNotification", "clicked()", "closed(IUpdaterNotification::NotificationClosedReason) reason",
            "NotificationHint: UpdaterNotificationHintActionIcon=0 UpdaterNotificationHintNotificationName=1 "
            "UpdaterNotificationHintTimeout=2 UpdaterNotificationHintPriority=3 UpdaterNotificationHintFallbackActionName=4",
            "NotificationPriority: LowPriority=-1 NormalPriority=0 UrgentPriority=1",
            "NotificationClosedReason: NotificationClicked=0 NotificationExpired=1 NotificationDismissed=2"};
        QTest::newRow("system info") << &ISystemInfo::staticMetaObject << QStringList{"tvl::updater::ISystemInfo"};
        QTest::newRow("network") << &INetworkManager::staticMetaObject << QStringList{"tvl::updater::INetworkManager"};
        QTest::newRow("i18n") << &II18n::staticMetaObject << QStringList{"tvl::updater::II18n"};
        QTest::newRow("errors") << &IUpdaterErrorManager::staticMetaObject << QStringList{"tvl::updater::IUpdaterErrorManager", "errorsModified()"};
        QTest::newRow("settings") << &ISettingsManager::staticMetaObject
                                  << QStringList{"tvl::updater::ISettingsManager", "settingChanged(QString,QVariant) key,value"};
        // Not a QObject: its interface id.
        QTest::newRow("system settings") << static_cast<const QMetaObject*>(nullptr) << QStringList{"com.tarvel.updater.ISystemSettingsProvider"};
    }

    void metaObjects()
    {
        QFETCH(const QMetaObject*, metaObject);
        QTEST(metaObject ? describe(metaObject) : QStringList{qobject_interface_iid<ISystemSettingsProvider*>()}, "description");
    }
};

QTEST_GUILESS_MAIN(TestServiceInterfaces)
#include "tst_serviceinterfaces.moc"
