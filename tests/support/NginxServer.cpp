#include "NginxServer.h"

#include <QtCore/QDeadlineTimer>
#include <QtCore/QFile>
#include <QtCore/QThread>
#include <QtNetwork/QTcpServer>
#include <QtNetwork/QTcpSocket>

#include <unistd.h>

namespace testsupport {

quint16 freeLoopbackPort()
{
    QTcpServer server;
    if (!server.listen(QHostAddress::LocalHost, 0))
        return 0;
    return server.serverPort();
}

NginxServer::NginxServer(const QString& root)
    : m_root(root)
{
}

NginxServer::~NginxServer()
{
    stop();
}

QUrl NginxServer::url() const
{
    return QUrl(QStringLiteral("http://127.0.0.1:%1/").arg(m_port));
}

bool NginxServer::isRunning() const
{
    return m_process.state() == QProcess::Running;
}

bool NginxServer::start(QString* error)
{
    QString reason;
    for (int attempt = 0; attempt < 5; ++attempt) {
        m_port = freeLoopbackPort();
        const QString dir = m_dir.path();
        // As root nginx hands its worker to "nobody", who cannot read a private temporary
        // directory; "user" is ignored when not started as root.
        const QString user = ::geteuid() == 0 ? QStringLiteral("user root;\n") : QString();
        const QString config = user + QStringLiteral(
            "daemon off;\nmaster_process off;\nworker_processes 1;\npid %1/nginx.pid;\nerror_log %1/error.log warn;\n"
            "events { worker_connections 512; }\n"
            "http {\n"
            "  log_format counted '$status $body_bytes_sent \"$http_range\" $request_uri';\n"
            "  access_log %1/access.log counted;\n"
            "  client_body_temp_path %1/body; proxy_temp_path %1/proxy; fastcgi_temp_path %1/fastcgi;\n"
            "  uwsgi_temp_path %1/uwsgi; scgi_temp_path %1/scgi;\n"
            "  default_type application/octet-stream;\n"
            "  sendfile on; keepalive_requests 100000; keepalive_timeout 60s;\n"
            "  server { listen 127.0.0.1:%2; root %3; location / { } }\n"
            "}\n").arg(dir).arg(m_port).arg(m_root);
        QFile file(dir + QStringLiteral("/nginx.conf"));
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(config.toUtf8()) < 0) {
            reason = file.errorString();
            break;
        }
        file.close();
        m_process.setProcessChannelMode(QProcess::MergedChannels);
        m_process.start(QStringLiteral("nginx"), {QStringLiteral("-p"), dir, QStringLiteral("-c"), dir + QStringLiteral("/nginx.conf"),
                                                  QStringLiteral("-e"), dir + QStringLiteral("/error.log")});
        if (!m_process.waitForStarted(5000)) {
            reason = QStringLiteral("nginx does not start: ") + m_process.errorString();
            break;
        }
        for (const QDeadlineTimer deadline(10'000); !deadline.hasExpired() && m_process.state() == QProcess::Running;) {
            QTcpSocket probe;
            probe.connectToHost(QHostAddress::LocalHost, m_port);
            if (probe.waitForConnected(200))
                return true;
            QThread::msleep(20);
        }
        m_process.waitForFinished(1000);
        QFile log(dir + QStringLiteral("/error.log"));
        log.open(QIODevice::ReadOnly);
        reason = QString::fromUtf8(m_process.readAll() + log.readAll());
        stop();
        if (!reason.contains(QLatin1String("Address already in use")))
            break;
    }
    if (error)
        *error = QStringLiteral("nginx did not start: ") + reason;
    return false;
}

void NginxServer::stop()
{
    if (m_process.state() != QProcess::NotRunning) {
        m_process.terminate();
        if (!m_process.waitForFinished(5000)) {
            m_process.kill();
            m_process.waitForFinished();
        }
    }
}

QList<NginxServer::Request> NginxServer::requests() const
{
    QList<Request> result;
    QFile log(m_dir.path() + QStringLiteral("/access.log"));
    if (!log.open(QIODevice::ReadOnly) || !log.seek(m_logOffset))
        return result;
    for (const QByteArray& line : log.readAll().split('\n')) {
        // <status> <bytes> "<range>" <uri>
        const qsizetype firstQuote = line.indexOf('"'), secondQuote = line.indexOf('"', firstQuote + 1);
        if (firstQuote < 0 || secondQuote < 0)
            continue;
        const QList<QByteArray> numbers = line.left(firstQuote).trimmed().split(' ');
        Request request;
        request.status = numbers.value(0).toInt();
        request.bytes = numbers.value(1).toLongLong();
        request.range = line.mid(firstQuote + 1, secondQuote - firstQuote - 1);
        if (request.range == "-")
            request.range.clear();
        request.uri = QString::fromUtf8(line.mid(secondQuote + 2));
        result.append(request);
    }
    return result;
}

qint64 NginxServer::bytesSent(const QString& uriPart) const
{
    qint64 total = 0;
    for (const Request& request : requests()) {
        if (uriPart.isEmpty() || request.uri.contains(uriPart))
            total += request.bytes;
    }
    return total;
}

void NginxServer::clearLog()
{
    m_logOffset = QFile(m_dir.path() + QStringLiteral("/access.log")).size();
}

} // namespace testsupport
