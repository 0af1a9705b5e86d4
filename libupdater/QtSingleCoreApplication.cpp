#include "QtSingleCoreApplication.h"
#include "QtLocalPeer_p.h"

class QtSingleCoreApplicationPrivate
{
public:
    tvl::updater::QtLocalPeer* peer = nullptr;
};

QtSingleCoreApplication::QtSingleCoreApplication(int& argc, char** argv)
    : QtSingleCoreApplication(QString(), argc, argv)
{
}

QtSingleCoreApplication::QtSingleCoreApplication(const QString& id, int& argc, char** argv)
    : QCoreApplication(argc, argv)
    , d(new QtSingleCoreApplicationPrivate)
{
    d->peer = new tvl::updater::QtLocalPeer(this, id);
    connect(d->peer, &tvl::updater::QtLocalPeer::messageReceived, this,
            &QtSingleCoreApplication::messageReceived);
}

QtSingleCoreApplication::~QtSingleCoreApplication() = default;

bool QtSingleCoreApplication::isRunning() const
{
    return d->peer->isClient();
}

bool QtSingleCoreApplication::takeOver(int timeout)
{
    return d->peer->takeOver(timeout);
}

QString QtSingleCoreApplication::id() const
{
    return d->peer->applicationId();
}

bool QtSingleCoreApplication::sendMessage(const QString& message, int timeout)
{
    return d->peer->sendMessage(message, timeout);
}
