#include "FaultProxy.h"

#include <QtCore/QPointer>
#include <QtCore/QSemaphore>
#include <QtNetwork/QTcpServer>
#include <QtNetwork/QTcpSocket>

namespace testsupport {

namespace {

/// One client connection: each request goes to the server on a connection of its own, with
/// "Connection: close", so that the end of a response is the end of that connection.
class Relay : public QObject
{
public:
    Relay(QTcpSocket* client, FaultProxy* proxy, const QUrl& upstream, QObject* parent)
        : QObject(parent)
        , m_client(client)
        , m_proxy(proxy)
        , m_upstream(upstream)
    {
        client->setParent(this);
        connect(client, &QTcpSocket::readyRead, this, [this] { onRequestData(); });
        connect(client, &QTcpSocket::disconnected, this, [this] { deleteLater(); });
    }

private:
    void onRequestData()
    {
        m_request += m_client->readAll();
        if (m_server)
            return; // one request at a time: the client waits for the close
        const qsizetype end = m_request.indexOf("\r\n\r\n");
        if (end < 0)
            return;
        QByteArray head = m_request.left(end);
        m_request.remove(0, end + 4);
        const QString uri = QString::fromLatin1(head.split(' ').value(1));
        m_hasFault = m_proxy->takeFault(uri, &m_fault);
        if (m_hasFault && m_fault.kind == FaultProxy::Unavailable) {
            m_client->write("HTTP/1.1 503 Service Unavailable\r\nRetry-After: " + QByteArray::number(m_fault.bytes)
                            + "\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
            m_client->disconnectFromHost();
            return;
        }
        QByteArray forwarded;
        for (const QByteArray& line : head.split('\n')) {
            if (!line.trimmed().toLower().startsWith("connection:"))
                forwarded += line.trimmed() + "\r\n";
        }
        forwarded += "Connection: close\r\n\r\n";
        m_server = new QTcpSocket(this);
        m_received = 0;
        m_bodyStart = -1;
        m_head.clear();
        connect(m_server, &QTcpSocket::connected, this, [this, forwarded] { m_server->write(forwarded); });
        connect(m_server, &QTcpSocket::readyRead, this, [this] { onResponseData(); });
        connect(m_server, &QTcpSocket::disconnected, this, [this] {
            if (m_client->state() == QAbstractSocket::ConnectedState && !m_stalled)
                m_client->disconnectFromHost();
        });
        m_server->connectToHost(m_upstream.host(), quint16(m_upstream.port(80)));
    }

    void onResponseData()
    {
        QByteArray data = m_server->readAll();
        if (m_stalled)
            return;
        if (m_bodyStart < 0) {
            m_head += data;
            const qsizetype end = m_head.indexOf("\r\n\r\n");
            if (end < 0)
                return;
            m_bodyStart = end + 4;
            data = m_head;
            m_received = 0;
        }
        // Offsets below count body bytes only.
        const qint64 bodyBefore = std::max<qint64>(0, m_received - m_bodyStart);
        const qint64 bodyInChunk = (m_received + data.size()) - std::max<qint64>(m_received, m_bodyStart);
        const qint64 chunkBodyOffset = std::max<qint64>(0, m_bodyStart - m_received);
        m_received += data.size();
        if (m_hasFault && bodyInChunk > 0) {
            const qint64 limit = m_fault.bytes - bodyBefore;
            switch (m_fault.kind) {
            case FaultProxy::FlipByte:
                if (limit >= 0 && limit < bodyInChunk)
                    data[chunkBodyOffset + limit] = char(~data[chunkBodyOffset + limit]);
                break;
            case FaultProxy::CutAfter:
            case FaultProxy::Stall:
                if (limit < bodyInChunk) {
                    m_client->write(data.left(chunkBodyOffset + std::max<qint64>(0, limit)));
                    m_client->flush();
                    if (m_fault.kind == FaultProxy::CutAfter) {
                        m_server->abort();
                        m_client->disconnectFromHost();
                    } else {
                        m_stalled = true;
                    }
                    return;
                }
                break;
            case FaultProxy::Unavailable:
                break;
            }
        }
        m_client->write(data);
    }

    QTcpSocket* m_client;
    FaultProxy* m_proxy;
    QUrl m_upstream;
    QPointer<QTcpSocket> m_server;
    QByteArray m_request;
    QByteArray m_head;
    qint64 m_received = 0;
    qint64 m_bodyStart = -1;
    bool m_hasFault = false;
    bool m_stalled = false;
    FaultProxy::Fault m_fault{};
};

} // namespace

FaultProxy::FaultProxy(const QUrl& upstream)
    : m_upstream(upstream)
{
    QSemaphore ready;
    auto* server = new QTcpServer;
    server->moveToThread(&m_thread);
    QObject::connect(&m_thread, &QThread::finished, server, &QObject::deleteLater);
    QObject::connect(server, &QTcpServer::newConnection, server, [this, server] {
        while (QTcpSocket* socket = server->nextPendingConnection())
            new Relay(socket, this, m_upstream, server);
    });
    m_thread.start();
    QMetaObject::invokeMethod(server, [this, server, &ready] {
        server->listen(QHostAddress::LocalHost, 0);
        m_port = server->serverPort();
        ready.release();
    });
    ready.acquire();
}

FaultProxy::~FaultProxy()
{
    m_thread.quit();
    m_thread.wait();
}

QUrl FaultProxy::url() const
{
    return QUrl(QStringLiteral("http://127.0.0.1:%1/").arg(m_port));
}

void FaultProxy::addFault(Kind kind, const QString& uriPart, int times, qint64 bytes)
{
    QMutexLocker locker(&m_mutex);
    m_faults.append({kind, uriPart, times, bytes});
}

void FaultProxy::clearFaults()
{
    QMutexLocker locker(&m_mutex);
    m_faults.clear();
}

int FaultProxy::faultsApplied() const
{
    QMutexLocker locker(&m_mutex);
    return m_applied;
}

bool FaultProxy::takeFault(const QString& uri, Fault* fault)
{
    QMutexLocker locker(&m_mutex);
    for (Fault& candidate : m_faults) {
        if (candidate.times > 0 && uri.contains(candidate.uriPart)) {
            --candidate.times;
            ++m_applied;
            *fault = candidate;
            return true;
        }
    }
    return false;
}

} // namespace testsupport
