// Writing a digital envelope: the SM2 cipher structure of the session key, and the envelope
// around it.

#include "zt_envelope_data.h"

#include "asn_agents.h"
#include "core_trace.h"
#include "envelope_structure.h"

using namespace ZtEnvelopeLayout;

namespace {
// Line tags the host's log readers know for build's trace.
constexpr int kNoDocumentTag = 164;
constexpr int kCertificateNotSequenceTag = 181;
constexpr int kCertificateNotOpenedTag = 207;

// The issuer Name and serialNumber of a certificate, each as its whole DER, ready for
// issuerAndSerialNumber. What the certificate lacks stays empty.
struct IssuerAndSerial
{
    QByteArray issuer;
    QByteArray serial;
};

IssuerAndSerial issuerAndSerialOf(ZtAsnAgent &certificate)
{
    IssuerAndSerial copied;
    if (ZtAsnBlockAgent *tbs = certificate.getChild(kTbsCertificateIndex, ASN_TAG_TYPE_SEQUENCE)) {
        if (ZtAsnBlockAgent *serial = tbs->getChild(kSerialNumberIndex, ASN_TAG_TYPE_INTEGER))
            copied.serial = serial->build();
        if (ZtAsnBlockAgent *issuer = tbs->getChild(kIssuerIndex, ASN_TAG_TYPE_SEQUENCE))
            copied.issuer = issuer->build();
    }
    return copied;
}

void addPrimitive(ZtAsnBlockAgent *parent, int tag, const QByteArray &content)
{
    if (ZtAsnBlockAgent *block = parent->addSample(tag))
        block->setData(content);
}

// The one recipient: version, issuerAndSerialNumber, keyEncryptionAlgorithm, encryptedKey.
// Each part is skipped alone when the host refuses its block.
void addRecipientInfo(ZtAsnBlockAgent *envelopedData, const IssuerAndSerial &recipient,
                      const QByteArray &encryptedKey)
{
    ZtAsnBlockAgent *recipientInfos = envelopedData->addStruct(ASN_TAG_TYPE_SET);
    ZtAsnBlockAgent *recipientInfo =
        recipientInfos ? recipientInfos->addStruct(ASN_TAG_TYPE_SEQUENCE) : nullptr;
    if (!recipientInfo)
        return;
    addPrimitive(recipientInfo, ASN_TAG_TYPE_INTEGER, versionOne());
    if (ZtAsnBlockAgent *issuerAndSerial = recipientInfo->addStruct(ASN_TAG_TYPE_SEQUENCE)) {
        // Added even when empty: the host decides what an empty value makes.
        issuerAndSerial->addBlock(recipient.issuer);
        issuerAndSerial->addBlock(recipient.serial);
    }
    if (ZtAsnBlockAgent *algorithm = recipientInfo->addStruct(ASN_TAG_TYPE_SEQUENCE))
        addPrimitive(algorithm, ASN_TAG_TYPE_OBJECT_IDENTIFIER, sm2EncryptionOid());
    addPrimitive(recipientInfo, ASN_TAG_TYPE_OCTET_STRING, encryptedKey);
}

// contentType, contentEncryptionAlgorithm, then the content as the one OCTET STRING inside a
// constructed [0].
void addEncryptedContentInfo(ZtAsnBlockAgent *envelopedData, const QByteArray &content)
{
    ZtAsnBlockAgent *info = envelopedData->addStruct(ASN_TAG_TYPE_SEQUENCE);
    if (!info)
        return;
    addPrimitive(info, ASN_TAG_TYPE_OBJECT_IDENTIFIER, dataOid());
    if (ZtAsnBlockAgent *algorithm = info->addStruct(ASN_TAG_TYPE_SEQUENCE))
        addPrimitive(algorithm, ASN_TAG_TYPE_OBJECT_IDENTIFIER, sm4EcbOid());
    if (ZtAsnBlockAgent *encrypted = info->addStruct(ASN_TAG_TYPE_CONTEXT_0))
        addPrimitive(encrypted, ASN_TAG_TYPE_OCTET_STRING, content);
}
} // namespace

// Block agents are never deleted here: each lives until the process ends, as it always has.
// The suppression file lists them with the library's other deliberate leaks.

void ZtEnvelopeData::SetEncKeyData(QByteArray keyData)
{
    ZtAsnAgent document;
    if (!document.target())
        return;

    if (document.create(ASN_TAG_TYPE_SEQUENCE)) {
        // mid() copies only the bytes that exist, so a short key is never read past its end.
        if (ZtAsnBlockAgent *x = document.addSample(ASN_TAG_TYPE_INTEGER))
            x->setData(keyData.mid(kPackedXOffset, kCoordinateLength));
        if (ZtAsnBlockAgent *y = document.addSample(ASN_TAG_TYPE_INTEGER))
            y->setData(keyData.mid(kPackedYOffset, kCoordinateLength));
        ZtAsnBlockAgent *hash = document.addSample(ASN_TAG_TYPE_OCTET_STRING);
        if (hash)
            hash->setData(keyData.mid(kPackedHashOffset, kHashLength));
        ZtAsnBlockAgent *cipher = document.addSample(ASN_TAG_TYPE_OCTET_STRING);
        // The guard has always tested the HASH block, not the CipherText block: without a HASH
        // block the CipherText stays without data. Readers of old envelopes depend on it.
        if (hash && cipher)
            cipher->setData(keyData.mid(kPackedCipherOffset, kSessionKeyCipherLength));
    }
    document.update();
    encKeyData = document.build();
}

QByteArray ZtEnvelopeData::build()
{
    ZtAsnAgent envelope;
    if (!envelope.target()) {
        coreTraceDebug("build", kNoDocumentTag, QStringLiteral(" fail"));
        return QByteArray();
    }
    ZtAsnAgent asnParseAgent;
    if (!asnParseAgent.target())
        return QByteArray();

    if (!asnParseAgent.open(recCert)) {
        coreTraceDebug("build", kCertificateNotOpenedTag,
                       QStringLiteral("asnParseAgent.cert open fail asn == 0"));
        return QByteArray();
    }
    if (!asnParseAgent.checkTag(ASN_TAG_TYPE_SEQUENCE)) {
        coreTraceDebug("build", kCertificateNotSequenceTag,
                       QStringLiteral("asnParseAgent.checkTag(ASN_TAG_TYPE_SEQUENCE fail"));
        asnParseAgent.close();
        return QByteArray();
    }
    const IssuerAndSerial recipient = issuerAndSerialOf(asnParseAgent);

    if (envelope.create(ASN_TAG_TYPE_SEQUENCE)) {
        if (ZtAsnBlockAgent *contentType = envelope.addSample(ASN_TAG_TYPE_OBJECT_IDENTIFIER))
            contentType->setData(envelopedDataOid());
        ZtAsnBlockAgent *content = envelope.addStruct(ASN_TAG_TYPE_CONTEXT_0);
        ZtAsnBlockAgent *envelopedData =
            content ? content->addStruct(ASN_TAG_TYPE_SEQUENCE) : nullptr;
        if (envelopedData) {
            addPrimitive(envelopedData, ASN_TAG_TYPE_INTEGER, versionOne());
            addRecipientInfo(envelopedData, recipient, encKeyData);
            addEncryptedContentInfo(envelopedData, encContent);
        }
    }
    envelope.update();
    return envelope.build();
}
