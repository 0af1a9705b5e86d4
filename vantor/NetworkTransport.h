#pragma once

#include <vantor/Transport.h>

#include <QtCore/QScopedPointer>

QT_BEGIN_NAMESPACE
class QNetworkAccessManager;
QT_END_NAMESPACE

namespace tvl::vantor {

/// A transport over a QNetworkAccessManager of its own, for use outside the launcher.
class VANTOR_EXPORT NetworkTransport : public Transport
{
    Q_OBJECT

public:
    explicit NetworkTransport(QObject* parent = nullptr);
    ~NetworkTransport() override;

    QNetworkAccessManager* networkAccessManager() const;
    QNetworkReply* get(const QNetworkRequest& request) override;

private:
    QScopedPointer<class NetworkTransportPrivate> d;
};

} // namespace tvl::vantor
