#include "ReleaseRecord_p.h"

#include "Crypto_p.h"

#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>

namespace tvl::vantor {

namespace {

// Signatures cover this prefix too, so that no other signed text can pass for a record.
const QByteArray SignedPrefix = QByteArrayLiteral("vantor release record\n");

QJsonObject parseObject(const QByteArray& json)
{
    return QJsonDocument::fromJson(json).object();
}

} // namespace

QByteArray ReleaseRecord::sign(const QByteArray& secretKey) const
{
    const QJsonObject payload{{QStringLiteral("format"), 1},
                              {QStringLiteral("project"), project},
                              {QStringLiteral("channel"), channel},
                              {QStringLiteral("version"), version},
                              {QStringLiteral("manifest"), QString::fromLatin1(manifestSha256)},
                              {QStringLiteral("manifestSize"), manifestSize},
                              {QStringLiteral("serial"), serial},
                              {QStringLiteral("published"), published.toUTC().toString(Qt::ISODate)},
                              {QStringLiteral("expires"), expires.toUTC().toString(Qt::ISODate)}};
    const QByteArray bytes = QJsonDocument(payload).toJson(QJsonDocument::Compact);
    const QJsonObject file{{QStringLiteral("signed"), QString::fromLatin1(bytes.toBase64())},
                           {QStringLiteral("key"), QString::fromLatin1(ed25519::publicKeyOf(secretKey).toBase64())},
                           {QStringLiteral("signature"), QString::fromLatin1(ed25519::sign(SignedPrefix + bytes, secretKey).toBase64())}};
    return QJsonDocument(file).toJson(QJsonDocument::Indented);
}

bool ReleaseRecord::parsePayload(const QByteArray& payload)
{
    const QJsonObject object = parseObject(payload);
    if (object.value(QStringLiteral("format")).toInt() != 1)
        return false;
    project = object.value(QStringLiteral("project")).toString();
    channel = object.value(QStringLiteral("channel")).toString();
    version = object.value(QStringLiteral("version")).toString();
    manifestSha256 = object.value(QStringLiteral("manifest")).toString().toLatin1();
    manifestSize = object.value(QStringLiteral("manifestSize")).toInteger(-1);
    serial = object.value(QStringLiteral("serial")).toInteger(-1);
    published = QDateTime::fromString(object.value(QStringLiteral("published")).toString(), Qt::ISODate);
    expires = QDateTime::fromString(object.value(QStringLiteral("expires")).toString(), Qt::ISODate);
    return isHexDigest(manifestSha256) && manifestSize > 0 && serial >= 0 && expires.isValid() && !version.isEmpty();
}

bool ReleaseRecord::parseUnverified(const QByteArray& file)
{
    return parsePayload(QByteArray::fromBase64(parseObject(file).value(QStringLiteral("signed")).toString().toLatin1()));
}

ErrorCode ReleaseRecord::verify(const QByteArray& file, const QList<QByteArray>& trustedKeys, const QString& expectedProject,
                                const QString& expectedChannel, const QDateTime& now, QString* error)
{
    const QJsonObject object = parseObject(file);
    const QByteArray payload = QByteArray::fromBase64(object.value(QStringLiteral("signed")).toString().toLatin1());
    const QByteArray key = QByteArray::fromBase64(object.value(QStringLiteral("key")).toString().toLatin1());
    const QByteArray signature = QByteArray::fromBase64(object.value(QStringLiteral("signature")).toString().toLatin1());
    if (payload.isEmpty() || signature.isEmpty()) {
        *error = QStringLiteral("The release record of channel \"%1\" is malformed: the repository is damaged or "
                                "was tampered with. Ask its publisher to publish again.").arg(expectedChannel);
        return ErrorCode::BadSignature;
    }
    if (!trustedKeys.contains(key)) {
        *error = QStringLiteral("The release record of channel \"%1\" is signed with a key that is not trusted (%2). "
                                "Check the public key you gave, or whether the repository is the right one.")
                     .arg(expectedChannel, QString::fromLatin1(key.toBase64()));
        return ErrorCode::UnknownKey;
    }
    if (!ed25519::verify(SignedPrefix + payload, signature, key) || !parsePayload(payload)) {
        *error = QStringLiteral("The release record of channel \"%1\" has a bad signature: it was altered after "
                                "signing. Nothing was changed; do not use this repository until its publisher "
                                "has published again.").arg(expectedChannel);
        return ErrorCode::BadSignature;
    }
    if (project != expectedProject || channel != expectedChannel) {
        *error = QStringLiteral("The release record served for %1/%2 was signed for %3/%4: the repository mixes up "
                                "records. Nothing was changed.").arg(expectedProject, expectedChannel, project, channel);
        return ErrorCode::BadSignature;
    }
    if (expires <= now) {
        *error = QStringLiteral("The release record of channel \"%1\" expired on %2: the repository is no longer "
                                "maintained or is being held back. Nothing was changed; ask its publisher to "
                                "publish again.").arg(channel, expires.toUTC().toString(Qt::ISODate));
        return ErrorCode::ExpiredRecord;
    }
    return ErrorCode::NoError;
}

} // namespace tvl::vantor
