#include "NetworkTransport.h"

#include <QtNetwork/QNetworkAccessManager>
#include <QtNetwork/QNetworkReply>

namespace tvl::vantor {

class NetworkTransportPrivate
{
public:
    explicit NetworkTransportPrivate(QObject* owner)
        : manager(owner)
    {
    }
    QNetworkAccessManager manager;
};

NetworkTransport::NetworkTransport(QObject* parent)
    : Transport(parent)
    , d(new NetworkTransportPrivate(this))
{
    // Redirects are followed within the same scheme or to https, never down to http.
    d->manager.setRedirectPolicy(QNetworkRequest::NoLessSafeRedirectPolicy);
}

NetworkTransport::~NetworkTransport() = default;

QNetworkAccessManager* NetworkTransport::networkAccessManager() const
{
    return &d->manager;
}

QNetworkReply* NetworkTransport::get(const QNetworkRequest& request)
{
    return d->manager.get(request);
}

} // namespace tvl::vantor
