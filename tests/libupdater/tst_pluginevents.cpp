#include <libupdater/UpdaterPluginAskToUserEvent.h>
#include <libupdater/UpdaterPluginCustomUrlClickedEvent.h>
#include <libupdater/UpdaterPluginErrorEvent.h>
#include <libupdater/UpdaterPluginLifecycleEvents.h>

#include <QtTest/QTest>

using namespace tvl::updater;

class TestPluginEvents : public QObject
{
    Q_OBJECT
    UpdaterPluginEventPtr m_received;

signals:
    void posted(tvl::updater::UpdaterPluginEventPtr event);

public slots:
    void take(tvl::updater::UpdaterPluginEventPtr event) { (m_received = event)->accept(); }

private slots:
    void events()
    {
        const UpdaterPluginErrorEvent fromText(QStringLiteral("x failed"));
        UpdaterPluginAskToUserEvent ask(QStringLiteral("Install now?"), true);
        const UpdaterPluginCustomUrlClickedEvent link(QUrl(QStringLiteral("launcher://open?path=a%20b%26c%3Dd%25")));
        const QList<int> types{fromText.type(), link.type(), ask.type(), AllPluginsLoadedEventUpdaterPluginEvent().type(),
                               AboutToQuitUpdaterPluginEvent().type()};
        QCOMPARE(types, (QList<int>{1, 5, 6, 7, 8}));
        QCOMPARE(fromText.error().html() + ' ' + fromText.error().errorId(), QStringLiteral("x failed U04010400"));
        ask.setUserAccept(false); // the answer, not the event's acceptance
        QVERIFY(ask.message() == QLatin1String("Install now?") && !ask.userAccepted() && !ask.accepted());
        QCOMPARE(link.action() + '|' + link.param("path") + '|' + link.param("lang"), QStringLiteral("open|a b&c=d%|"));
        const UpdaterError raised(0x04020031, QStringLiteral("patch failed"), QString());
        UpdaterPluginErrorEvent shared(raised);
        shared.reclassify(0x05040000); // for every receiver of the event, not for the poster's value
        QCOMPARE(shared.error().errorId() + ' ' + raised.errorId(), QStringLiteral("U05040031 U04020031"));
    }

    void queuedDeliveryByName()
    {
        registerPluginEventMetaTypes();
        QCOMPARE(QMetaType::fromName("tvl::updater::UpdaterPluginEvent*"), QMetaType::fromType<UpdaterPluginEvent*>());
        QVERIFY(connect(this, SIGNAL(posted(tvl::updater::UpdaterPluginEventPtr)), this,
                        SLOT(take(tvl::updater::UpdaterPluginEventPtr)), Qt::QueuedConnection));
        UpdaterPluginEventPtr event(new AboutToQuitUpdaterPluginEvent);
        const QWeakPointer<UpdaterPluginEvent> weak = event;
        emit posted(event);
        event.reset();
        QVERIFY(weak && !weak.toStrongRef()->accepted() && !m_received); // the queued call holds its own reference
        QTRY_VERIFY(m_received && m_received->accepted());
        m_received.reset();
        QVERIFY(!weak);
    }
};

QTEST_GUILESS_MAIN(TestPluginEvents)
#include "tst_pluginevents.moc"
