#pragma once

// Digital envelopes, SM2 keys and certificates made and read with OpenSSL alone, never with the
// library or the host's ASN.1 component: the independent side of the interoperability tests.
// Envelopes that only need to open on the road come from the host's sealer, itself OpenSSL only.

#include <QByteArray>
#include <QList>

#include <openssl/evp.h>

#include <memory>

struct EvpPkeyFree
{
    void operator()(EVP_PKEY *key) const { EVP_PKEY_free(key); }
};
using EvpPkeyPtr = std::unique_ptr<EVP_PKEY, EvpPkeyFree>;

// A fresh SM2 key pair with a self-signed SM2/SM3 certificate (public key as id-ecPublicKey
// on the SM2 curve, serial 0x0102030405, issuer and subject "CN=<commonName>").
struct Sm2Identity
{
    EvpPkeyPtr key;
    QByteArray certificateDer;
    QByteArray publicXY; // X ‖ Y, 32 bytes each, as OpenSSL sees the key
};
Sm2Identity makeSm2Identity(const char *commonName = "Envelope Recipient");

// A self-signed certificate of any key OpenSSL signs with, `digest` the signature's hash
// (EVP_sm3() for SM2, EVP_sha256() for RSA or P-256): serial, issuer and subject as above.
// Empty on failure.
QByteArray selfSignedCertificateDer(EVP_PKEY *key, const EVP_MD *digest,
                                    const char *commonName = "Envelope Recipient");

// The public key of a DER or PEM certificate; null when OpenSSL cannot read it.
EvpPkeyPtr publicKeyOfCertificate(const QByteArray &certificate);

// SM2 encryption as OpenSSL does it: the GM/T 0009 DER SEQUENCE { x, y, HASH, CipherText }
// with minimal INTEGERs. Empty on failure.
QByteArray sm2Encrypt(EVP_PKEY *recipient, const QByteArray &plaintext);
QByteArray sm2Decrypt(EVP_PKEY *key, const QByteArray &ciphertextDer);

// The four fields of an SM2 ciphertext DER, each as its content octets.
struct Sm2CiphertextFields
{
    QByteArray x, y, hash, cipher;
};
bool splitSm2Ciphertext(const QByteArray &der, Sm2CiphertextFields *fields);
// Packed key data: each coordinate as its last 32 octets left-padded to 32, HASH, CipherText.
QByteArray packedKeyData(const Sm2CiphertextFields &fields);
// The DER of an SM2 ciphertext whose INTEGERs carry exactly the given content octets.
QByteArray sm2CiphertextDer(const Sm2CiphertextFields &fields);

// SM4-ECB with PKCS#7 padding. Empty on failure (a wrong key usually fails the padding).
QByteArray sm4EcbEncrypt(const QByteArray &key, const QByteArray &plaintext);
QByteArray sm4EcbDecrypt(const QByteArray &key, const QByteArray &ciphertext);

QByteArray randomBytes(int count);

// One DER value written with OpenSSL's ASN1_put_object: `identifier` is the identifier octet
// (0x30, 0x04, 0xA0 ...), `content` its content octets.
QByteArray derValue(int identifier, const QByteArray &content);

// A DER tree read with OpenSSL's ASN1_get_object. Primitive values keep their content;
// constructed ones their children. Unparseable input answers false.
struct DerNode
{
    int identifier = 0;
    QByteArray content;  // content octets
    QByteArray encoding; // identifier, length and content
    QList<DerNode> children;

    const DerNode *child(int index) const
    {
        return index >= 0 && index < children.size() ? &children.at(index) : nullptr;
    }
};
bool parseDer(const QByteArray &der, DerNode *root);

// Dotted text of an OBJECT IDENTIFIER's content octets, as OpenSSL prints it.
QByteArray oidText(const QByteArray &content);

// The parts of an envelope, each changeable on its own for the tests of odd envelopes. The
// defaults are the envelope the library itself writes.
struct EnvelopeParts
{
    QByteArray contentType;          // envelopedData
    QByteArray version = QByteArrayLiteral("\x01");
    QByteArray recipientVersion = QByteArrayLiteral("\x01");
    QByteArray issuerDer;            // whole DER Name
    QByteArray serialDer;            // whole DER INTEGER
    QByteArray keyAlgorithm;         // SM2 encryption
    QByteArray encryptedKey;         // DER of the SM2 cipher structure
    bool withEncryptedKey = true;
    int recipientCount = 1;          // the same RecipientInfo repeated
    QByteArray dataContentType;      // data
    QByteArray contentAlgorithm;     // SM4-ECB
    QByteArray encryptedContent;
    bool primitiveContent = false;   // [0] IMPLICIT OCTET STRING (0x80) instead of 0xA0 { 04 }

    EnvelopeParts();
};
QByteArray assembleEnvelope(const EnvelopeParts &parts);

// Issuer and serial number of a certificate, each as whole DER; false if it is not one.
bool issuerAndSerialOf(const QByteArray &certificateDer, QByteArray *issuerDer,
                       QByteArray *serialDer);

// A complete envelope of `content` for the recipient certificate (DER), from the host's sealer
// (host/sealer): a random SM4 key, SM2-encrypted to the certificate's key with both coordinates
// of C1 whole 32 octets (the plug-in cannot read a shorter one back), the content SM4-ECB
// encrypted with PKCS#7 padding. The session key is handed back when asked for. Empty, with the
// sealer's reason as a warning, on failure; the sealer refuses empty content.
QByteArray makeEnvelopeWithOpenSsl(const QByteArray &recipientCertDer, const QByteArray &content,
                                   QByteArray *sessionKey = nullptr);

// The envelope the sealer refuses to make: SM4-ECB of no content at all (one block of
// padding), the session key sealed as the sealer seals it. Empty on failure.
QByteArray makeEnvelopeOfNoContent(const QByteArray &recipientCertDer);

// Opens an envelope with OpenSSL alone and the recipient's private key: the plaintext, or
// empty when any step fails.
QByteArray openEnvelopeWithOpenSsl(const QByteArray &envelopeDer, EVP_PKEY *recipientKey);
