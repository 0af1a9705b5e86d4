#pragma once

// A real nginx serving a directory on a free loopback port, configured and run inside a
// temporary directory of its own (no /etc, no /var), for tests and benchmarks.

#include <QtCore/QList>
#include <QtCore/QProcess>
#include <QtCore/QString>
#include <QtCore/QTemporaryDir>
#include <QtCore/QUrl>

namespace testsupport {

class NginxServer
{
public:
    /// One request as nginx logged it.
    struct Request
    {
        int status = 0;
        qint64 bytes = 0;      ///< $body_bytes_sent
        QString uri;
        QByteArray range;      ///< the Range header, if any
        QByteArray ifRange;    ///< the If-Range header, if any
        QByteArray method;
        QByteArray protocol;   ///< "HTTP/1.1", "HTTP/2.0"
    };

    /// Serves `root` (which must exist) at the server's root URL.
    explicit NginxServer(const QString& root);
    ~NginxServer();

    NginxServer(const NginxServer&) = delete;
    NginxServer& operator=(const NginxServer&) = delete;

    /// Adds nginx directives to the server block (locations, returns); call before start().
    void addServerConfig(const QString& directives);
    /**
     * Serves the same root and directives over TLS as well, on a port of its own, with a
     * certificate for 127.0.0.1 made by openssl for the run: certificateFile() is what a client
     * must trust. Call before start().
     */
    bool enableTls(QString* error = nullptr);
    QUrl tlsUrl() const;
    /// Serves the same over HTTP/2 without TLS (prior knowledge) on a port of its own; call before start().
    void enableHttp2Cleartext();
    QUrl http2Url() const;
    QString certificateFile() const;

    /// Starts nginx and waits until it accepts connections; false with a reason in `error`.
    bool start(QString* error = nullptr);
    void stop();
    bool isRunning() const;

    quint16 port() const { return m_port; }
    QUrl url() const;

    /// Every request logged since the server started or since clearLog().
    QList<Request> requests() const;
    /// Body bytes sent, for requests whose URI contains `uriPart` (all when empty).
    qint64 bytesSent(const QString& uriPart = {}) const;
    /// Forgets the requests logged so far.
    void clearLog();

private:
    QString m_root;
    QTemporaryDir m_dir;
    QProcess m_process;
    quint16 m_port = 0;
    quint16 m_tlsPort = 0;
    quint16 m_http2Port = 0;
    QString m_serverConfig;
    qint64 m_logOffset = 0;
};

/// A free TCP port on the loopback address (bound and released again; retry on the rare clash).
quint16 freeLoopbackPort();

} // namespace testsupport
