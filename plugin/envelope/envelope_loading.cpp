// Reading a digital envelope (untrusted bytes from the page): the host's ASN.1 component
// parses; this file only walks the tree it built.

#include "zt_envelope_data.h"

#include "asn_agents.h"
#include "crypto_error.h"
#include "envelope_structure.h"

#include <QDebug>
#include <QLoggingCategory>

using namespace ZtEnvelopeLayout;

namespace {
// Dumps go to Qt's debug channel, not the library's logs. The hex of a large content costs
// more than the parse, so it is made only when that channel is on.
void debugDump(const char *label, const QByteArray &bytes)
{
    if (QLoggingCategory::defaultCategory()->isDebugEnabled())
        qDebug() << label << bytes.toHex();
}

// A coordinate's last 32 content octets: DER puts a 00 before a value whose top bit is set.
// A shorter content is kept short, and the fields after it move forward with it.
QByteArray coordinateOf(ZtAsnBlockAgent *integer, const char *label)
{
    debugDump(label, integer->toByteArray());
    return integer->toByteArray().right(kCoordinateLength);
}
} // namespace

bool ZtEnvelopeData::load(QByteArray envelope)
{
    encKeyData.clear();
    encContent.clear();

    ZtAsnAgent document;
    if (!document.target()) {
        SetCryptoErrorCode(ZtError::kModuleLoadFailed);
        return false;
    }

    if (document.open(envelope)) {
        if (!document.checkTag(ASN_TAG_TYPE_SEQUENCE)) {
            SetCryptoErrorCode(ZtError::kEnvelopeParseFailed);
            document.close();
            return false;
        }
        ZtAsnBlockAgent *content = document.getChild(kContentIndex, ASN_TAG_TYPE_CONTEXT_0);
        ZtAsnBlockAgent *envelopedData =
            content ? content->getChild(kEnvelopedDataIndex, ASN_TAG_TYPE_SEQUENCE) : nullptr;
        if (envelopedData) {
            ZtAsnBlockAgent *recipientInfos =
                envelopedData->getChild(kRecipientInfosIndex, ASN_TAG_TYPE_SET);
            ZtAsnBlockAgent *recipientInfo =
                recipientInfos ? recipientInfos->getChild(kFirstRecipientIndex, ASN_TAG_TYPE_SEQUENCE)
                               : nullptr;
            ZtAsnBlockAgent *encryptedKey =
                recipientInfo ? recipientInfo->getChild(kEncryptedKeyIndex, ASN_TAG_TYPE_OCTET_STRING)
                              : nullptr;
            if (encryptedKey) {
                encKeyData = encryptedKey->toByteArray();
                debugDump("pbtEncKeyData = ", encKeyData);
            }

            ZtAsnBlockAgent *info =
                envelopedData->getChild(kEncryptedContentInfoIndex, ASN_TAG_TYPE_SEQUENCE);
            ZtAsnBlockAgent *encrypted =
                info ? info->getChild(kEncryptedContentIndex, ASN_TAG_TYPE_CONTEXT_0) : nullptr;
            ZtAsnBlockAgent *segment =
                encrypted ? encrypted->getChild(kFirstSegmentIndex, ASN_TAG_TYPE_OCTET_STRING)
                          : nullptr;
            if (segment) {
                encContent = segment->toByteArray();
                debugDump("pbtEncContent = ", encContent);
            }
        }
    }

    // The content alone decides: an envelope without a usable encrypted key still loads.
    if (!encContent.isEmpty())
        return true;
    SetCryptoErrorCode(ZtError::kEnvelopeParseFailed);
    return false;
}

QByteArray ZtEnvelopeData::GetEncKeyData()
{
    QByteArray packed;
    ZtAsnAgent document;
    if (!document.target() || !document.open(encKeyData))
        return packed;
    if (!document.checkTag(ASN_TAG_TYPE_SEQUENCE)) {
        document.close();
        return packed;
    }
    if (ZtAsnBlockAgent *x = document.getChild(kXCoordinateIndex, ASN_TAG_TYPE_INTEGER))
        packed.append(coordinateOf(x, "pXCoordinate->toByteArray() = "));
    if (ZtAsnBlockAgent *y = document.getChild(kYCoordinateIndex, ASN_TAG_TYPE_INTEGER))
        packed.append(coordinateOf(y, "pYCoordinate->toByteArray() = "));
    if (ZtAsnBlockAgent *hash = document.getChild(kHashIndex, ASN_TAG_TYPE_OCTET_STRING))
        packed.append(hash->toByteArray());
    if (ZtAsnBlockAgent *cipher = document.getChild(kCipherTextIndex, ASN_TAG_TYPE_OCTET_STRING))
        packed.append(cipher->toByteArray());
    return packed;
}

bool ZtEnvelopeData::ParseCertData(QByteArray cert)
{
    ZtAsnAgent document;
    if (!document.target())
        return false;
    // A certificate that does not parse at all counts as walked; callers have always relied
    // on only a non-SEQUENCE being refused.
    if (!document.open(cert))
        return true;
    if (!document.checkTag(ASN_TAG_TYPE_SEQUENCE)) {
        document.close();
        return false;
    }
    if (ZtAsnBlockAgent *tbs = document.getChild(kTbsCertificateIndex, ASN_TAG_TYPE_SEQUENCE)) {
        tbs->getChild(kSerialNumberIndex, ASN_TAG_TYPE_INTEGER);
        tbs->getChild(kIssuerIndex, ASN_TAG_TYPE_SEQUENCE);
    }
    return true;
}
