#pragma once

#include <vantor/VantorExport.h>

#include <QtCore/QObject>
#include <QtNetwork/QNetworkRequest>

QT_BEGIN_NAMESPACE
class QNetworkReply;
QT_END_NAMESPACE

namespace tvl::vantor {

/**
 * How the engine reaches a repository. Every request is made on the thread that owns the
 * transport, which needs a running event loop; the engine reads the reply there and deletes it
 * (deleteLater()) once it has finished. The launcher hands in its shared network access, which
 * may retry on its own behind the reply it returns; the engine retries too, with a range
 * request for what a cut connection left out.
 */
class VANTOR_EXPORT Transport : public QObject
{
    Q_OBJECT

public:
    explicit Transport(QObject* parent = nullptr);
    ~Transport() override;

    /// Starts a GET request; never null.
    virtual QNetworkReply* get(const QNetworkRequest& request) = 0;
};

} // namespace tvl::vantor
