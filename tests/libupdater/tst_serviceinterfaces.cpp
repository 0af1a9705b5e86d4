#include <libupdater/II18n.h>
#include <libupdater/INetworkManager.h>
#include <libupdater/ISettingsManager.h>
#include <libupdater/ISystemInfo.h>
#include <libupdater/ISystemSettingsProvider.h>
#include <libupdater/IUpdateEngine.h>
#include <libupdater/IUpdaterErrorManager.h>
#include <libupdater/IUpdaterNotification.h>

#include <QtCore/QMetaEnum>
#include <QtTest/QSignalSpy>
#include <QtTest/QTest>

using namespace tvl::updater;

namespace {

class Engine : public IUpdateEngine
{
    Q_OBJECT
public:
    QStringList projects() const override { return {QStringLiteral("alpha")}; }
    UpdateState state() const override { return Initializing; }
    UpdateState projectState(const QString&) const override { return UpToDate | Executable; }
    bool checkForUpdates(const QString&) override { return true; }
    bool update(const QString&) override { return true; }
    void cancel() override { }
};

class SystemSettings : public QObject, public ISystemSettingsProvider
{
    Q_OBJECT
    Q_INTERFACES(tvl::updater::ISystemSettingsProvider)
public:
    QVariant value(const QString& key) const override { return m_values.value(key); }
    void setValue(const QString& key, const QVariant& value) override { m_values.insert(key, value); }

private:
    QVariantMap m_values;
};

using Signals = QList<QPair<QByteArray, QByteArray>>;   // normalised signature, parameter names
using Enums = QList<QPair<QByteArray, QList<QPair<QByteArray, int>>>>;

} // namespace

Q_DECLARE_METATYPE(const QMetaObject*)

class TestServiceInterfaces : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void metaObjects_data();
    void metaObjects();
    void castsAreExact();
    void initializingIsEmpty();
    void signalsReachConsumers();
    void systemSettingsProviderByInterface();
    void settingsAttributesMetaType();
};

void TestServiceInterfaces::metaObjects_data()
{
    QTest::addColumn<const QMetaObject*>("metaObject");
    QTest::addColumn<QByteArray>("className");
    QTest::addColumn<Signals>("signalList");
    QTest::addColumn<Enums>("enums");

    QTest::newRow("engine")
        << &IUpdateEngine::staticMetaObject << QByteArray("tvl::updater::IUpdateEngine")
        << Signals{{"projectChanged(QString)", "project"},
                   {"stateChanged(tvl::updater::IUpdateEngine::UpdateState)", ""},
                   {"stateChanged(QString,tvl::updater::IUpdateEngine::UpdateState)", "project,"},
                   {"progress(tvl::vantor::Progress)", ""},
                   {"computationProgress(double)", ""},
                   {"projectUpdated(tvl::vantor::UpdateResultPtr)", "result"},
                   {"allProjectsUpdated()", ""}}
        << Enums{{"UpdateStateE",
                  {{"Initializing", 0}, {"CheckingUpdates", 2}, {"ElevationRequested", 4}, {"Updating", 8},
                   {"UpToDate", 16}, {"Executable", 32}, {"UpdatePending", 64},
                   {"UpdateBlockedByProcess", 128}, {"UpdateFailed", 256}}}};
    QTest::newRow("notification")
        << &IUpdaterNotification::staticMetaObject << QByteArray("tvl::updater::IUpdaterNotification")
        << Signals{{"clicked()", ""}, {"closed(IUpdaterNotification::NotificationClosedReason)", "reason"}}
        << Enums{{"NotificationHint",
                  {{"UpdaterNotificationHintActionIcon", 0}, {"UpdaterNotificationHintNotificationName", 1},
                   {"UpdaterNotificationHintTimeout", 2}, {"UpdaterNotificationHintPriority", 3},
                   {"UpdaterNotificationHintFallbackActionName", 4}}},
                 {"NotificationPriority", {{"LowPriority", -1}, {"NormalPriority", 0}, {"UrgentPriority", 1}}},
                 {"NotificationClosedReason",
                  {{"NotificationClicked", 0}, {"NotificationExpired", 1}, {"NotificationDismissed", 2}}}};
    QTest::newRow("system info") << &ISystemInfo::staticMetaObject << QByteArray("tvl::updater::ISystemInfo")
                                 << Signals{} << Enums{};
    QTest::newRow("network") << &INetworkManager::staticMetaObject
                             << QByteArray("tvl::updater::INetworkManager") << Signals{} << Enums{};
    QTest::newRow("i18n") << &II18n::staticMetaObject << QByteArray("tvl::updater::II18n") << Signals{}
                          << Enums{};
    QTest::newRow("error manager") << &IUpdaterErrorManager::staticMetaObject
                                   << QByteArray("tvl::updater::IUpdaterErrorManager")
                                   << Signals{{"errorsModified()", ""}} << Enums{};
    QTest::newRow("settings manager") << &ISettingsManager::staticMetaObject
                                      << QByteArray("tvl::updater::ISettingsManager")
                                      << Signals{{"settingChanged(QString,QVariant)", "key,value"}} << Enums{};
}

void TestServiceInterfaces::metaObjects()
{
    QFETCH(const QMetaObject*, metaObject);
    QFETCH(Signals, signalList);
    QFETCH(Enums, enums);

    QTEST(QByteArray(metaObject->className()), "className");
    QCOMPARE(metaObject->superClass(), &QObject::staticMetaObject);

    // Only signals of their own: the operations are plain virtual functions.
    QCOMPARE(metaObject->methodCount() - metaObject->methodOffset(), int(signalList.size()));
    for (int i = 0; i < signalList.size(); ++i) {
        const QMetaMethod method = metaObject->method(metaObject->methodOffset() + i);
        QCOMPARE(method.methodType(), QMetaMethod::Signal);
        QCOMPARE(method.methodSignature(), signalList.at(i).first);
        QCOMPARE(method.parameterNames().join(','), signalList.at(i).second);
        QCOMPARE(method.access(), QMetaMethod::Protected);
    }

    QCOMPARE(metaObject->propertyCount(), metaObject->propertyOffset());
    QCOMPARE(metaObject->enumeratorCount() - metaObject->enumeratorOffset(), int(enums.size()));
    for (int i = 0; i < enums.size(); ++i) {
        const QMetaEnum metaEnum = metaObject->enumerator(metaObject->enumeratorOffset() + i);
        QCOMPARE(QByteArray(metaEnum.name()), enums.at(i).first);
        QVERIFY(!metaEnum.isFlag());
        const auto& keys = enums.at(i).second;
        QCOMPARE(metaEnum.keyCount(), int(keys.size()));
        for (int k = 0; k < keys.size(); ++k) {
            QCOMPARE(QByteArray(metaEnum.key(k)), keys.at(k).first);
            QCOMPARE(metaEnum.value(k), keys.at(k).second);
        }
    }
}

void TestServiceInterfaces::castsAreExact()
{
    Engine engine;
    QObject plain;

    QCOMPARE(qobject_cast<IUpdateEngine*>(&engine), &engine);
    QVERIFY(!qobject_cast<IUpdaterErrorManager*>(&engine));
    QVERIFY(!qobject_cast<ISettingsManager*>(&engine));
    QVERIFY(!qobject_cast<IUpdateEngine*>(&plain));
    QVERIFY(engine.inherits("tvl::updater::IUpdateEngine"));
    QVERIFY(!engine.inherits("IUpdateEngine"));
}

void TestServiceInterfaces::initializingIsEmpty()
{
    const Engine engine;
    const IUpdateEngine::UpdateState state = engine.state();
    QVERIFY(!(state & IUpdateEngine::Initializing));
    QVERIFY(state == IUpdateEngine::Initializing);

    const IUpdateEngine::UpdateState running = engine.projectState(QStringLiteral("alpha"));
    QVERIFY(running.testFlag(IUpdateEngine::Executable));
    QVERIFY(running != IUpdateEngine::Initializing);
}

void TestServiceInterfaces::signalsReachConsumers()
{
    Engine engine;
    QSignalSpy overall(&engine, qOverload<IUpdateEngine::UpdateState>(&IUpdateEngine::stateChanged));
    QSignalSpy byName(&engine, SIGNAL(stateChanged(QString, tvl::updater::IUpdateEngine::UpdateState)));
    QVERIFY(overall.isValid());
    QVERIFY(byName.isValid());
    emit engine.stateChanged(QStringLiteral("alpha"), IUpdateEngine::Updating | IUpdateEngine::Executable);
    QCOMPARE(overall.size(), 0);
    QCOMPARE(byName.size(), 1);
    QCOMPARE(byName.at(0).at(0).toString(), QStringLiteral("alpha"));
    QCOMPARE(byName.at(0).at(1).value<IUpdateEngine::UpdateState>(),
             IUpdateEngine::Updating | IUpdateEngine::Executable);
}

void TestServiceInterfaces::systemSettingsProviderByInterface()
{
    SystemSettings settings;
    QObject* object = &settings;
    QCOMPARE(qobject_interface_iid<ISystemSettingsProvider*>(),
             "com.tarvel.updater.ISystemSettingsProvider");

    ISystemSettingsProvider* provider = qobject_cast<ISystemSettingsProvider*>(object);
    QVERIFY(provider);
    provider->setValue(QStringLiteral("sys.osname"), QStringLiteral("Debian"));
    QCOMPARE(provider->value(QStringLiteral("sys.osname")).toString(), QStringLiteral("Debian"));
    QVERIFY(!provider->value(QStringLiteral("missing")).isValid());

    QObject plain;
    QVERIFY(!qobject_cast<ISystemSettingsProvider*>(&plain));
}

void TestServiceInterfaces::settingsAttributesMetaType()
{
    const int id = registerSettingsAttributesMetaType();
    QCOMPARE(registerSettingsAttributesMetaType(), id);
    QCOMPARE(QMetaType::fromName("tvl::updater::SettingsAttributes").id(), id);
    QCOMPARE(QMetaType::fromType<SettingsAttributes>().id(), id);

    const QVariant variant = QVariant::fromValue(SettingsAttributes(AllScopes) | TrustedUrlOnly);
    QCOMPARE(variant.value<SettingsAttributes>(), SettingsAttributes(0xF1));
}

QTEST_GUILESS_MAIN(TestServiceInterfaces)
#include "tst_serviceinterfaces.moc"
