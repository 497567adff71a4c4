// Parses untrusted bytes: a certificate from a file the user names or from a key device.
#include "certificate_facts.h"

#include "sealer/key_type.h"

#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <memory>

namespace zthost::cli {

namespace {

QDateTime utcOf(const ASN1_TIME *time)
{
    struct tm parts = {};
    if (!time || ASN1_TIME_to_tm(time, &parts) != 1)
        return QDateTime();
    return QDateTime(QDate(parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday),
                     QTime(parts.tm_hour, parts.tm_min, parts.tm_sec), Qt::UTC);
}

} // namespace

bool readCertificateFacts(const QByteArray &der, CertificateFacts *facts, QString *error)
{
    const auto *p = reinterpret_cast<const unsigned char *>(der.constData());
    std::unique_ptr<X509, decltype(&X509_free)> certificate(d2i_X509(nullptr, &p, der.size()),
                                                            &X509_free);
    if (!certificate) {
        *error = QStringLiteral("%1 bytes that are no DER X.509 certificate").arg(der.size());
        return false;
    }
    std::unique_ptr<BIO, decltype(&BIO_free)> bio(BIO_new(BIO_s_mem()), &BIO_free);
    if (bio && X509_NAME_print_ex(bio.get(), X509_get_subject_name(certificate.get()), 0,
                                  XN_FLAG_RFC2253) >= 0) {
        char *data = nullptr;
        const long size = BIO_get_mem_data(bio.get(), &data);
        facts->subject = QString::fromUtf8(data, int(size));
    }
    EVP_PKEY *key = X509_get0_pubkey(certificate.get());
    facts->keyType = sealing::keyTypeOf(key);
    facts->sm2 = key && EVP_PKEY_is_a(key, "SM2");
    facts->notBefore = utcOf(X509_get0_notBefore(certificate.get()));
    facts->notAfter = utcOf(X509_get0_notAfter(certificate.get()));

    const uint32_t usage = X509_get_key_usage(certificate.get());
    facts->hasKeyUsage = usage != UINT32_MAX;
    facts->keyUsage.clear();
    if (facts->hasKeyUsage) {
        static const struct { uint32_t bit; const char *name; } kBits[] = {
            {KU_DIGITAL_SIGNATURE, "digitalSignature"}, {KU_NON_REPUDIATION, "nonRepudiation"},
            {KU_KEY_ENCIPHERMENT, "keyEncipherment"},   {KU_DATA_ENCIPHERMENT, "dataEncipherment"},
            {KU_KEY_AGREEMENT, "keyAgreement"},         {KU_KEY_CERT_SIGN, "keyCertSign"},
            {KU_CRL_SIGN, "cRLSign"},                   {KU_ENCIPHER_ONLY, "encipherOnly"},
            {KU_DECIPHER_ONLY, "decipherOnly"},
        };
        for (const auto &bit : kBits) {
            if (usage & bit.bit)
                facts->keyUsage << QLatin1String(bit.name);
        }
    }
    return true;
}

QString keyEnciphermentProblem(const CertificateFacts &facts, const QString &whose)
{
    if (facts.allowsKeyEncipherment())
        return QString();
    return QStringLiteral("%1 key usage (%2) does not include keyEncipherment")
        .arg(whose, facts.keyUsage.isEmpty() ? QStringLiteral("none")
                                             : facts.keyUsage.join(QLatin1String(", ")));
}

} // namespace zthost::cli
