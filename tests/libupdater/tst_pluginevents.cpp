#include <libupdater/UpdaterPluginAskToUserEvent.h>
#include <libupdater/UpdaterPluginCustomUrlClickedEvent.h>
#include <libupdater/UpdaterPluginErrorEvent.h>
#include <libupdater/UpdaterPluginEvent.h>
#include <libupdater/UpdaterPluginLifecycleEvents.h>

#include <QtTest/QTest>

using namespace tvl::updater;

namespace {

/// Content of a plugin's own making: only a shared error keeps its details.
class TracedError : public IUpdaterErrorPrivate
{
public:
    QString text() const override { return QStringLiteral("patch failed"); }
    QString html() const override { return QString(); }
    quint32 errorCode() const override { return 0x04020031; }
    QString details() const override { return QStringLiteral("chunk 7 of 9"); }
};

class Sender : public QObject
{
    Q_OBJECT
Q_SIGNALS:
    void posted(tvl::updater::UpdaterPluginEventPtr event);
};

class Receiver : public QObject
{
    Q_OBJECT
public:
    UpdaterPluginEventPtr received;
public Q_SLOTS:
    void take(tvl::updater::UpdaterPluginEventPtr event)
    {
        received = event;
        event->accept();
    }
};

} // namespace

class TestPluginEvents : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void types_data();
    void types();
    void errorEventFromText();
    void errorEventSharesError();
    void customUrl_data();
    void customUrl();
    void askToUser();
    void metaTypeNames();
    void queuedDelivery();
};

void TestPluginEvents::types_data()
{
    QTest::addColumn<UpdaterPluginEventPtr>("event");
    QTest::addColumn<int>("type");

    QTest::newRow("error") << UpdaterPluginEventPtr(new UpdaterPluginErrorEvent(QStringLiteral("x"))) << 1;
    QTest::newRow("custom url") << UpdaterPluginEventPtr(new UpdaterPluginCustomUrlClickedEvent(QUrl()))
                                << 5;
    QTest::newRow("ask") << UpdaterPluginEventPtr(new UpdaterPluginAskToUserEvent(QString(), true)) << 6;
    QTest::newRow("all loaded") << UpdaterPluginEventPtr(new AllPluginsLoadedEventUpdaterPluginEvent) << 7;
    QTest::newRow("about to quit") << UpdaterPluginEventPtr(new AboutToQuitUpdaterPluginEvent) << 8;
    QTest::newRow("plain") << UpdaterPluginEventPtr(new UpdaterPluginEvent(UpdaterPluginEvent::CustomEvent))
                           << 4;
}

void TestPluginEvents::types()
{
    QFETCH(UpdaterPluginEventPtr, event);
    QTEST(int(event->type()), "type");

    QVERIFY(!event->accepted());
    event->accept();
    event->accept();
    QVERIFY(event->accepted());
}

void TestPluginEvents::errorEventFromText()
{
    const UpdaterPluginErrorEvent event(QStringLiteral("download failed"));
    const UpdaterError error = event.error();
    QCOMPARE(error.text(), QStringLiteral("download failed"));
    QCOMPARE(error.html(), QStringLiteral("download failed"));
    QCOMPARE(error.errorCode(), 0x04010400u);
}

void TestPluginEvents::errorEventSharesError()
{
    const UpdaterError raised(new TracedError);
    const UpdaterPluginEventPtr posted(new UpdaterPluginErrorEvent(raised));
    const UpdaterPluginEventPtr otherReceiver = posted;

    QVERIFY(dynamic_cast<UpdaterPluginErrorEvent*>(posted.data()));
    static_cast<UpdaterPluginErrorEvent*>(posted.data())->reclassify(0x05040000);

    const UpdaterError seen = static_cast<UpdaterPluginErrorEvent*>(otherReceiver.data())->error();
    QCOMPARE(seen.errorCode(), 0x05040031u);
    QCOMPARE(seen.errorId(), QStringLiteral("U05040031"));
    QCOMPARE(seen.text(), raised.text());
    QCOMPARE(seen.details(), QStringLiteral("chunk 7 of 9"));
    // The value the poster kept is a copy of its own: its code is untouched.
    QCOMPARE(raised.errorCode(), 0x04020031u);
}

void TestPluginEvents::customUrl_data()
{
    QTest::addColumn<QUrl>("url");
    QTest::addColumn<QString>("action");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("param");

    QTest::newRow("action and param") << QUrl(QStringLiteral("launcher://install?game=alpha&lang=de"))
                                      << QStringLiteral("install") << QStringLiteral("lang")
                                      << QStringLiteral("de");
    QTest::newRow("absent param") << QUrl(QStringLiteral("launcher://install?game=alpha"))
                                  << QStringLiteral("install") << QStringLiteral("lang") << QString();
    QTest::newRow("no host") << QUrl(QStringLiteral("launcher:?game=alpha")) << QString()
                             << QStringLiteral("game") << QStringLiteral("alpha");
    QTest::newRow("encoded value") << QUrl(QStringLiteral("launcher://open?path=a%20b%26c%3Dd%25"))
                                   << QStringLiteral("open") << QStringLiteral("path")
                                   << QStringLiteral("a b&c=d%");
    QTest::newRow("empty url") << QUrl() << QString() << QStringLiteral("x") << QString();
}

void TestPluginEvents::customUrl()
{
    QFETCH(QUrl, url);
    QFETCH(QString, name);

    const UpdaterPluginCustomUrlClickedEvent event(url);
    QCOMPARE(event.url(), url);
    QTEST(event.action(), "action");
    QTEST(event.param(name), "param");
}

void TestPluginEvents::askToUser()
{
    UpdaterPluginAskToUserEvent event(QStringLiteral("Install now?"), true);
    QCOMPARE(event.message(), QStringLiteral("Install now?"));
    QVERIFY(event.userAccepted());
    event.setUserAccept(false);
    QVERIFY(!event.userAccepted());
    // The answer and the event's acceptance are two different things.
    QVERIFY(!event.accepted());
}

void TestPluginEvents::metaTypeNames()
{
    registerPluginEventMetaTypes();
    registerPluginEventMetaTypes();

    QCOMPARE(QMetaType::fromName("tvl::updater::UpdaterPluginEvent*"),
             QMetaType::fromType<UpdaterPluginEvent*>());
    QCOMPARE(QMetaType::fromName("tvl::updater::UpdaterPluginEventPtr"),
             QMetaType::fromType<UpdaterPluginEventPtr>());
}

void TestPluginEvents::queuedDelivery()
{
    registerPluginEventMetaTypes();

    Sender sender;
    Receiver receiver;
    // By name, as plugins written against string-based connections do.
    QVERIFY(QObject::connect(&sender, SIGNAL(posted(tvl::updater::UpdaterPluginEventPtr)), &receiver,
                             SLOT(take(tvl::updater::UpdaterPluginEventPtr)), Qt::QueuedConnection));

    UpdaterPluginEventPtr event(new AboutToQuitUpdaterPluginEvent);
    QWeakPointer<UpdaterPluginEvent> weak = event;
    emit sender.posted(event);
    QVERIFY(!receiver.received);
    event.reset();
    QVERIFY(weak); // the queued call holds its own reference

    QTRY_VERIFY(receiver.received);
    QCOMPARE(receiver.received->type(), UpdaterPluginEvent::AboutToQuit);
    QVERIFY(receiver.received->accepted());
    receiver.received.reset();
    QVERIFY(!weak);
}

QTEST_GUILESS_MAIN(TestPluginEvents)
#include "tst_pluginevents.moc"
