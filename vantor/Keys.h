#pragma once

#include <vantor/VantorExport.h>

#include <QtCore/QByteArray>
#include <QtCore/QString>

namespace tvl::vantor {

/**
 * Ed25519 keys for signing release records. A public key is written as 44 characters of
 * base64; a secret key file holds one line, "vantor-secret-key " and the 64-byte secret key in
 * base64, and is readable by its owner only.
 */
class VANTOR_EXPORT Keys
{
public:
    /// A new key pair (raw bytes: 32 for the public key, 64 for the secret key).
    static void generate(QByteArray* publicKey, QByteArray* secretKey);

    /// The public key half of a secret key.
    static QByteArray publicKeyOf(const QByteArray& secretKey);

    /// The text form of a public key.
    static QString encodePublicKey(const QByteArray& publicKey);
    /// A public key given as text or as the name of a file holding that text; an empty array
    /// and a reason in `error` when it is neither.
    static QByteArray decodePublicKey(const QString& textOrFile, QString* error = nullptr);

    /// Writes a secret key file (mode 0600); false with a reason in `error` on failure.
    static bool writeSecretKey(const QString& path, const QByteArray& secretKey, QString* error = nullptr);
    static QByteArray readSecretKey(const QString& path, QString* error = nullptr);
};

} // namespace tvl::vantor
