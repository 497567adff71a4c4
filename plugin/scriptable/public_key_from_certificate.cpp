// The SM2 public point of a certificate, read by the host's certificate component.

#include "zt_cryptographic.h"

#include "agents.h"
#include "core_trace.h"

#include <algorithm>

namespace {
// Line tags the host's log readers know for this function's trace.
constexpr int kStartTag = 191;
constexpr int kEmptyCertificateTag = 194;
constexpr int kKeyDataTag = 206;
constexpr int kResultTag = 218;

constexpr char kUncompressedPointPrefix = 0x04;
constexpr int kCoordinatesLength = 64; // X then Y, 32 bytes each
constexpr int kPointLength = 1 + kCoordinatesLength;
} // namespace

QByteArray ZtCryptographic::ZtGetPubKeyByCert(QByteArray certData)
{
    coreTraceDebug("ZtGetPubKeyByCert", kStartTag, QStringLiteral(" start "));
    if (certData.isEmpty()) {
        coreTraceDebug("ZtGetPubKeyByCert", kEmptyCertificateTag,
                       QStringLiteral(" pbtCertData is empty "));
        return QByteArray();
    }

    QByteArray keyData;
    {
        // A new certificate component per call; the host keeps it, only the agent goes.
        ZtCertificateAgent certificate;
        // An unbound agent is not asked at all, so the core log gets no line for it.
        const bool opened = certificate.target() && certificate.open(certData);
        if (opened) {
            keyData = certificate.getPublicKeyData();
            // The "%1" is never filled in: the hex follows it. Log readers match this text.
            coreTraceDebug("ZtGetPubKeyByCert", kKeyDataTag,
                           QStringLiteral(" get cert public key data = %1")
                               + QString::fromLatin1(keyData.toHex()));
        }
    }

    // Zero-filled first, so that a component that gave fewer than 64 bytes, or none, leaves
    // zeros behind it; never more than 64 bytes are read from the key data.
    QByteArray point(kPointLength, '\0');
    point[0] = kUncompressedPointPrefix;
    const int copied = qMin(keyData.size(), kCoordinatesLength);
    std::copy_n(keyData.constData(), copied, point.data() + 1);
    coreTraceDebug("ZtGetPubKeyByCert", kResultTag,
                   QStringLiteral(" deal done public key data = %1")
                       + QString::fromLatin1(point.toHex()));
    return point;
}
