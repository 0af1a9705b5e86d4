#pragma once

#include <vantor/VantorTypes.h>

#include <QtCore/QByteArray>
#include <QtCore/QDateTime>
#include <QtCore/QList>
#include <QtCore/QString>

namespace tvl::vantor {

/// A channel's signed statement of which version is current.
struct ReleaseRecord
{
    QString project;
    QString channel;
    QString version;
    QByteArray manifestSha256;   ///< of the manifest file as stored
    qint64 manifestSize = 0;     ///< of the manifest file as stored
    qint64 serial = 0;
    QDateTime published;
    QDateTime expires;

    /// The record file, signed with `secretKey`.
    QByteArray sign(const QByteArray& secretKey) const;

    /// Reads a record file without checking its signature (the publisher reads its own).
    bool parseUnverified(const QByteArray& file);

    /**
     * Reads and checks a record file fetched for `project` and `channel`: signed by one of
     * `trustedKeys` (raw Ed25519 public keys), not expired at `now`, for that project and
     * channel. The serial is left to the caller, who knows what was accepted before.
     */
    ErrorCode verify(const QByteArray& file, const QList<QByteArray>& trustedKeys, const QString& project,
                     const QString& channel, const QDateTime& now, QString* error);

private:
    bool parsePayload(const QByteArray& payload);
};

} // namespace tvl::vantor
