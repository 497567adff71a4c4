// ZtGetPubKeyByCert on the host's real certificate component: the point it answers for an SM2
// certificate made by OpenSSL is OpenSSL's own view of the key.

#include "qt_printers.h"
#include "asn_host.h"
#include "log_sandbox.h"
#include "openssl_envelope.h"
#include "zt_cryptographic.h"

#include <QStringList>

#include <gtest/gtest.h>

TEST(PublicKeyInterop, pointOfAnSm2CertificateIsOpenSslsPublicKey)
{
    LogSandbox logs;
    AsnHost host;
    ZtCryptographic crypto;
    const Sm2Identity identity = makeSm2Identity();
    host.core.clearRecords();

    const QByteArray point = crypto.ZtGetPubKeyByCert(identity.certificateDer);

    EXPECT_EQ(point.toHex(), (QByteArray(1, '\x04') + identity.publicXY).toHex());
    EXPECT_EQ(host.core.traceLines(),
              (QStringList{"D [ZtGetPubKeyByCert:191] start ",
                           QStringLiteral("D [ZtGetPubKeyByCert:206] get cert public key data = %1")
                               + QString::fromLatin1(identity.publicXY.toHex()),
                           QStringLiteral("D [ZtGetPubKeyByCert:218] deal done public key data = %1")
                               + QString::fromLatin1(point.toHex())}));
}

TEST(PublicKeyInterop, pemCertificateGivesTheSamePoint)
{
    LogSandbox logs;
    AsnHost host;
    ZtCryptographic crypto;
    const Sm2Identity identity = makeSm2Identity();
    const QByteArray pem = "-----BEGIN CERTIFICATE-----\n"
        + identity.certificateDer.toBase64() + "\n-----END CERTIFICATE-----\n";
    EXPECT_EQ(crypto.ZtGetPubKeyByCert(pem).toHex(),
              (QByteArray(1, '\x04') + identity.publicXY).toHex());
}

TEST(PublicKeyInterop, bytesTheComponentRefusesGiveThePrefixAndZeros)
{
    LogSandbox logs;
    AsnHost host;
    ZtCryptographic crypto;
    const QByteArray truncated = makeSm2Identity().certificateDer.left(100);
    EXPECT_EQ(crypto.ZtGetPubKeyByCert(truncated).toHex(),
              (QByteArray(1, '\x04') + QByteArray(64, '\0')).toHex());
}
