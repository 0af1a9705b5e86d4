#pragma once

#include <vantor/VantorExport.h>

#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtCore/QString>
#include <QtCore/QUrl>

namespace tvl::vantor {

class Transport;

/// The parameters of an operation. Each kind of operation reads the fields it needs.
struct VANTOR_EXPORT Options
{
    // The install side.
    QUrl repository;                 ///< the repository's base URL (http, https or file)
    QString project;
    QString channel = QStringLiteral("stable");
    QList<QByteArray> trustedKeys;   ///< raw Ed25519 public keys; records signed by others are refused
    QString installDirectory;
    int connections = 4;             ///< parallel transfers; four times as many once the server speaks HTTP/2
    qint64 rateLimit = 0;            ///< bytes per second over all transfers; 0 for none
    int timeoutMs = 30'000;          ///< a transfer that receives nothing for this long is retried
    int retries = 5;                 ///< further attempts of a transfer that failed on the way
    int lockTimeoutMs = 0;           ///< how long to wait for another process on the directory
    qint64 rollbackLimit = qint64(1) << 30;   ///< replaced files kept for a rollback, in bytes
    /// Speak HTTP/2 to an http:// repository from the first byte, for servers known to offer it
    /// without TLS; https:// negotiates HTTP/2 on its own whenever the server offers it.
    bool http2PriorKnowledge = false;
    /// Carries the transfers; not owned, and used on the thread that owns it. Null: the
    /// operation makes a NetworkTransport of its own on its own thread.
    Transport* transport = nullptr;

    // Publishing.
    QString sourceDirectory;
    QString repositoryDirectory;
    QByteArray secretKey;            ///< raw Ed25519 secret key (Keys::readSecretKey)
    QString version;
    int compressionLevel = 3;        ///< zstd level of new chunks
    qint64 validForSeconds = 30 * 24 * 3600;   ///< the release record's lifetime
};

} // namespace tvl::vantor
