#include "Crypto_p.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <sodium.h>

namespace tvl::vantor {

void initializeCrypto()
{
    static const bool initialized = [] {
        OPENSSL_init_crypto(OPENSSL_INIT_LOAD_CONFIG, nullptr);
        return ed25519::initialize();
    }();
    Q_UNUSED(initialized);
}

struct Sha256::Context
{
    EVP_MD_CTX* md = EVP_MD_CTX_new();
    ~Context() { EVP_MD_CTX_free(md); }
};

Sha256::Sha256()
    : m_context(new Context)
{
    reset();
}

Sha256::~Sha256() = default;

void Sha256::reset()
{
    EVP_DigestInit_ex(m_context->md, EVP_sha256(), nullptr);
}

void Sha256::add(QByteArrayView data)
{
    EVP_DigestUpdate(m_context->md, data.data(), size_t(data.size()));
}

QByteArray Sha256::hexDigest()
{
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_DigestFinal_ex(m_context->md, digest, &length);
    reset();
    return QByteArray(reinterpret_cast<const char*>(digest), int(length)).toHex();
}

QByteArray Sha256::hex(QByteArrayView data)
{
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_Digest(data.data(), size_t(data.size()), digest, &length, EVP_sha256(), nullptr);
    return QByteArray(reinterpret_cast<const char*>(digest), int(length)).toHex();
}

bool isHexDigest(QByteArrayView text)
{
    if (text.size() != 64)
        return false;
    for (char c : text) {
        if (!((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f')))
            return false;
    }
    return true;
}

namespace ed25519 {

bool initialize()
{
    static const bool ok = sodium_init() >= 0;
    return ok;
}

void generate(QByteArray* publicKey, QByteArray* secretKey)
{
    initialize();
    publicKey->resize(PublicKeyBytes);
    secretKey->resize(SecretKeyBytes);
    crypto_sign_keypair(reinterpret_cast<unsigned char*>(publicKey->data()),
                        reinterpret_cast<unsigned char*>(secretKey->data()));
}

QByteArray sign(QByteArrayView message, const QByteArray& secretKey)
{
    initialize();
    if (secretKey.size() != SecretKeyBytes)
        return {};
    QByteArray signature(SignatureBytes, Qt::Uninitialized);
    crypto_sign_detached(reinterpret_cast<unsigned char*>(signature.data()), nullptr,
                         reinterpret_cast<const unsigned char*>(message.data()), message.size(),
                         reinterpret_cast<const unsigned char*>(secretKey.constData()));
    return signature;
}

bool verify(QByteArrayView message, const QByteArray& signature, const QByteArray& publicKey)
{
    initialize();
    if (signature.size() != SignatureBytes || publicKey.size() != PublicKeyBytes)
        return false;
    return crypto_sign_verify_detached(reinterpret_cast<const unsigned char*>(signature.constData()),
                                       reinterpret_cast<const unsigned char*>(message.data()), message.size(),
                                       reinterpret_cast<const unsigned char*>(publicKey.constData()))
        == 0;
}

QByteArray publicKeyOf(const QByteArray& secretKey)
{
    if (secretKey.size() != SecretKeyBytes)
        return {};
    QByteArray publicKey(PublicKeyBytes, Qt::Uninitialized);
    crypto_sign_ed25519_sk_to_pk(reinterpret_cast<unsigned char*>(publicKey.data()),
                                 reinterpret_cast<const unsigned char*>(secretKey.constData()));
    return publicKey;
}

} // namespace ed25519

} // namespace tvl::vantor
