#include "Keys.h"

#include "Crypto_p.h"

#include <QtCore/QFile>
#include <QtCore/QSaveFile>

namespace tvl::vantor {

namespace {
const QByteArray SecretKeyTag = QByteArrayLiteral("vantor-secret-key ");
}

void Keys::generate(QByteArray* publicKey, QByteArray* secretKey)
{
    ed25519::generate(publicKey, secretKey);
}

QByteArray Keys::publicKeyOf(const QByteArray& secretKey)
{
    return ed25519::publicKeyOf(secretKey);
}

QString Keys::encodePublicKey(const QByteArray& publicKey)
{
    return QString::fromLatin1(publicKey.toBase64());
}

QByteArray Keys::decodePublicKey(const QString& textOrFile, QString* error)
{
    QByteArray text = textOrFile.trimmed().toLatin1();
    if (QFile::exists(textOrFile)) {
        QFile file(textOrFile);
        if (!file.open(QIODevice::ReadOnly)) {
            if (error)
                *error = QStringLiteral("Cannot read the public key file %1: %2").arg(textOrFile, file.errorString());
            return {};
        }
        text = file.read(4096).trimmed();
    }
    const auto decoded = QByteArray::fromBase64Encoding(text, QByteArray::AbortOnBase64DecodingErrors);
    if (!decoded || decoded.decoded.size() != ed25519::PublicKeyBytes) {
        if (error)
            *error = QStringLiteral("\"%1\" is not a public key: give the 44 characters that \"vantor keygen\" printed, "
                                    "or a file holding them").arg(textOrFile);
        return {};
    }
    return decoded.decoded;
}

bool Keys::writeSecretKey(const QString& path, const QByteArray& secretKey, QString* error)
{
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly)
        || !file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner)
        || file.write(SecretKeyTag + secretKey.toBase64() + '\n') < 0 || !file.commit()) {
        if (error)
            *error = QStringLiteral("Cannot write the key file %1: %2").arg(path, file.errorString());
        return false;
    }
    return true;
}

QByteArray Keys::readSecretKey(const QString& path, QString* error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        if (error)
            *error = QStringLiteral("Cannot read the key file %1: %2").arg(path, file.errorString());
        return {};
    }
    const QByteArray line = file.read(4096).trimmed();
    const QByteArray key = line.startsWith(SecretKeyTag) ? QByteArray::fromBase64(line.mid(SecretKeyTag.size())) : QByteArray();
    if (key.size() != ed25519::SecretKeyBytes || ed25519::publicKeyOf(key) != key.right(ed25519::PublicKeyBytes)) {
        if (error)
            *error = QStringLiteral("%1 is not a secret key written by \"vantor keygen\"").arg(path);
        return {};
    }
    return key;
}

} // namespace tvl::vantor
