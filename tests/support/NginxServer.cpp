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

void NginxServer::addServerConfig(const QString& directives)
{
    m_serverConfig += directives + QLatin1Char('\n');
}

bool NginxServer::enableTls(QString* error)
{
    QProcess openssl;
    openssl.setProcessChannelMode(QProcess::MergedChannels);
    openssl.start(QStringLiteral("openssl"),
                  {QStringLiteral("req"), QStringLiteral("-x509"), QStringLiteral("-newkey"), QStringLiteral("ec"),
                   QStringLiteral("-pkeyopt"), QStringLiteral("ec_paramgen_curve:prime256v1"), QStringLiteral("-nodes"),
                   QStringLiteral("-days"), QStringLiteral("2"), QStringLiteral("-subj"), QStringLiteral("/CN=127.0.0.1"),
                   QStringLiteral("-addext"), QStringLiteral("subjectAltName=IP:127.0.0.1"), QStringLiteral("-keyout"),
                   m_dir.filePath(QStringLiteral("tls.key")), QStringLiteral("-out"), certificateFile()});
    if (!openssl.waitForFinished(30000) || openssl.exitCode() != 0) {
        if (error)
            *error = QStringLiteral("openssl cannot make a certificate: ") + QString::fromUtf8(openssl.readAll());
        return false;
    }
    m_tlsPort = 1;
    return true;
}

QUrl NginxServer::tlsUrl() const
{
    return QUrl(QStringLiteral("https://127.0.0.1:%1/").arg(m_tlsPort));
}

void NginxServer::enableHttp2Cleartext()
{
    m_http2Port = 1; // a real port is picked at start()
}

QUrl NginxServer::http2Url() const
{
    return QUrl(QStringLiteral("http://127.0.0.1:%1/").arg(m_http2Port));
}

QString NginxServer::certificateFile() const
{
    return m_dir.filePath(QStringLiteral("tls.crt"));
}

bool NginxServer::start(QString* error)
{
    QString reason;
    for (int attempt = 0; attempt < 5; ++attempt) {
        m_port = freeLoopbackPort();
        QString tlsServer;
        if (m_tlsPort != 0) {
            m_tlsPort = freeLoopbackPort();
            tlsServer = QStringLiteral("  server { listen 127.0.0.1:%1 ssl; ssl_certificate %2/tls.crt; ssl_certificate_key %2/tls.key;\n"
                                       "    root %3; location / { }\n%4  }\n")
                            .arg(m_tlsPort).arg(m_dir.path(), m_root, m_serverConfig);
        }
        if (m_http2Port != 0)
            m_http2Port = freeLoopbackPort();
        const QString http2Listen = m_http2Port != 0 ? QStringLiteral(" listen 127.0.0.1:%1 http2;").arg(m_http2Port) : QString();
        const QString dir = m_dir.path();
        // As root nginx hands its worker to "nobody", who cannot read a private temporary
        // directory; "user" is ignored when not started as root.
        const QString user = ::geteuid() == 0 ? QStringLiteral("user root;\n") : QString();
        const QString config = user + QStringLiteral(
            "daemon off;\nmaster_process off;\nworker_processes 1;\npid %1/nginx.pid;\nerror_log %1/error.log warn;\n"
            "events { worker_connections 512; }\n"
            "http {\n"
            "  log_format counted '$status $body_bytes_sent \"$http_range\" \"$http_if_range\" $request_method $server_protocol $request_uri';\n"
            "  access_log %1/access.log counted;\n"
            "  client_body_temp_path %1/body; proxy_temp_path %1/proxy; fastcgi_temp_path %1/fastcgi;\n"
            "  uwsgi_temp_path %1/uwsgi; scgi_temp_path %1/scgi;\n"
            "  default_type application/octet-stream;\n"
            "  sendfile on; keepalive_requests 100000; keepalive_timeout 60s;\n"
            "  server { listen 127.0.0.1:%2;%6 root %3; location / { }\n%4  }\n%5"
            "}\n").arg(dir).arg(m_port).arg(m_root, m_serverConfig, tlsServer, http2Listen);
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
        // <status> <bytes> "<range>" "<if-range>" <method> <protocol> <uri>
        const qsizetype first = line.indexOf('"'), second = line.indexOf('"', first + 1);
        const qsizetype third = line.indexOf('"', second + 1), fourth = line.indexOf('"', third + 1);
        if (first < 0 || second < 0 || third < 0 || fourth < 0)
            continue;
        const QList<QByteArray> numbers = line.left(first).trimmed().split(' ');
        Request request;
        request.status = numbers.value(0).toInt();
        request.bytes = numbers.value(1).toLongLong();
        const auto header = [](const QByteArray& value) { return value == "-" ? QByteArray() : value; };
        request.range = header(line.mid(first + 1, second - first - 1));
        request.ifRange = header(line.mid(third + 1, fourth - third - 1));
        const QByteArray rest = line.mid(fourth + 2);
        const qsizetype space = rest.indexOf(' '), secondSpace = rest.indexOf(' ', space + 1);
        request.method = rest.left(space);
        request.protocol = rest.mid(space + 1, secondSpace - space - 1);
        request.uri = QString::fromUtf8(rest.mid(secondSpace + 1));
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
