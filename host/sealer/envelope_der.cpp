#include "envelope_der_p.h"

#include "der_writer_p.h"
#include "openssl_handles_p.h"

#include <initializer_list>

namespace zthost::sealing {

namespace {
constexpr char kEnvelopedDataOid[] = "1.2.156.10197.6.1.4.2.3";
constexpr char kDataOid[] = "1.2.156.10197.6.1.4.2.1";
constexpr char kSm2EncryptionOid[] = "1.2.156.10197.1.301.3";
constexpr char kSm4EcbOid[] = "1.2.156.10197.1.104.1";
// Both EnvelopedData and RecipientInfo.
constexpr unsigned long kVersion = 1;

// Every constructed value of the envelope holds something, and a DER writer answers empty only
// when it failed: so an empty part makes the whole value empty, and the failure reaches the top.
QByteArray around(int identifier, std::initializer_list<QByteArray> parts)
{
    QByteArray content;
    for (const QByteArray &part : parts) {
        if (part.isEmpty())
            return QByteArray();
        content += part;
    }
    return der::constructed(identifier, content);
}

QByteArray recipientInfo(const EnvelopeContents &contents)
{
    return around(der::kSequence,
                  {der::integer(kVersion),
                   around(der::kSequence, {contents.issuerDer, contents.serialDer}),
                   around(der::kSequence, {der::objectIdentifier(kSm2EncryptionOid)}),
                   der::octetString(contents.encryptedKey)});
}

QByteArray encryptedContentInfo(const EnvelopeContents &contents)
{
    return around(der::kSequence,
                  {der::objectIdentifier(kDataOid),
                   around(der::kSequence, {der::objectIdentifier(kSm4EcbOid)}),
                   around(der::kContextZero, {der::octetString(contents.encryptedContent)})});
}
} // namespace

QByteArray envelopeDer(const EnvelopeContents &contents, QString *error)
{
    const QByteArray envelopedData =
        around(der::kSequence, {der::integer(kVersion),
                                around(der::kSet, {recipientInfo(contents)}),
                                encryptedContentInfo(contents)});
    const QByteArray envelope =
        around(der::kSequence, {der::objectIdentifier(kEnvelopedDataOid),
                                around(der::kContextZero, {envelopedData})});
    if (envelope.isEmpty())
        *error = QStringLiteral("writing the envelope's DER around %1 bytes of encrypted content "
                                "failed: %2")
                     .arg(contents.encryptedContent.size())
                     .arg(openSslReason());
    return envelope;
}

} // namespace zthost::sealing
