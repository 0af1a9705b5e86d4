#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QByteArrayView>

#include <memory>

namespace tvl::vantor {

/**
 * Initialises OpenSSL and libsodium once, on the calling thread. OpenSSL's first use keeps some
 * state of the thread that made it; done on a worker thread that ends, that state is lost.
 */
void initializeCrypto();

/// SHA-256 through OpenSSL's EVP interface, which uses the CPU's SHA instructions.
class Sha256
{
public:
    Sha256();
    ~Sha256();
    Sha256(const Sha256&) = delete;
    Sha256& operator=(const Sha256&) = delete;

    void reset();
    void add(QByteArrayView data);
    /// The digest as 64 lower-case hexadecimal digits; the object is reset afterwards.
    QByteArray hexDigest();

    static QByteArray hex(QByteArrayView data);

private:
    struct Context;
    std::unique_ptr<Context> m_context;
};

/// Ed25519 through libsodium. Keys and signatures are the raw bytes.
namespace ed25519 {
constexpr int PublicKeyBytes = 32;
constexpr int SecretKeyBytes = 64;
constexpr int SignatureBytes = 64;

bool initialize();
/// A new key pair: the secret key holds the public one in its second half.
void generate(QByteArray* publicKey, QByteArray* secretKey);
QByteArray sign(QByteArrayView message, const QByteArray& secretKey);
bool verify(QByteArrayView message, const QByteArray& signature, const QByteArray& publicKey);
QByteArray publicKeyOf(const QByteArray& secretKey);
} // namespace ed25519

/// True for 64 lower-case hexadecimal digits, the form of every hash in a repository.
bool isHexDigest(QByteArrayView text);

} // namespace tvl::vantor
