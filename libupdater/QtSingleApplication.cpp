#include "QtSingleApplication.h"
#include "QtLocalPeer_p.h"

#include <QtCore/QPointer>
#include <QtWidgets/QWidget>

class QtSingleApplicationPrivate
{
public:
    tvl::updater::QtLocalPeer* peer = nullptr;
    QPointer<QWidget> activationWindow;
};

QtSingleApplication::QtSingleApplication(int& argc, char** argv, bool GUIenabled)
    : QtSingleApplication(QString(), argc, argv)
{
    Q_UNUSED(GUIenabled)
}

QtSingleApplication::QtSingleApplication(const QString& id, int& argc, char** argv)
    : QApplication(argc, argv)
    , d(new QtSingleApplicationPrivate)
{
    d->peer = new tvl::updater::QtLocalPeer(this, id);
    connect(d->peer, &tvl::updater::QtLocalPeer::messageReceived, this,
            &QtSingleApplication::messageReceived);
}

QtSingleApplication::~QtSingleApplication() = default;

bool QtSingleApplication::isRunning() const
{
    return d->peer->isClient();
}

bool QtSingleApplication::takeOver(int timeout)
{
    return d->peer->takeOver(timeout);
}

QString QtSingleApplication::id() const
{
    return d->peer->applicationId();
}

bool QtSingleApplication::sendMessage(const QString& message, int timeout)
{
    return d->peer->sendMessage(message, timeout);
}

void QtSingleApplication::setActivationWindow(QWidget* aw, bool activateOnMessage)
{
    d->activationWindow = aw;
    disconnect(d->peer, &tvl::updater::QtLocalPeer::messageReceived, this,
               &QtSingleApplication::activateWindow);
    if (aw && activateOnMessage)
        connect(d->peer, &tvl::updater::QtLocalPeer::messageReceived, this,
                &QtSingleApplication::activateWindow);
}

QWidget* QtSingleApplication::activationWindow() const
{
    return d->activationWindow.data();
}

void QtSingleApplication::activateWindow()
{
    QWidget* window = d->activationWindow.data();
    if (!window)
        return;
    // Only the minimised bit goes: a maximised or full-screen window comes back as it was.
    window->setWindowState(window->windowState() & ~Qt::WindowMinimized);
    window->show();
    window->raise();
    window->activateWindow();
}
