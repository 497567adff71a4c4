#pragma once

#include "zt_export.h"

#include <QByteArray>

// One digital envelope: the DER of the SM2-encrypted session key, the encrypted content and the
// recipient certificate. Every operation works through a fresh document of the host's ASN.1
// component ("ZTUTIL.ZtAsn.1"); without one it prints "createComponentObject =   fail" to
// standard output and fails as stated below. Documents are left to the host, and the block
// agents obtained on the way are never deleted. Calling thread only.
class ZT_EXPORT ZtEnvelopeData
{
public:
    ZtEnvelopeData();
    virtual ~ZtEnvelopeData();

    // The setters accept anything and check nothing.
    void SetRecCert(QByteArray cert);
    void SetEncContent(QByteArray content);
    QByteArray GetEncContent();

    // Turns packed key data (x 32 ‖ y 32 ‖ HASH 32 ‖ CipherText 16) into the DER of the SM2
    // cipher structure and keeps it; a shorter input hands over only the bytes it has. Without
    // an ASN.1 component the old value stays. Sets no error code.
    void SetEncKeyData(QByteArray keyData);

    // The DER envelope for the recipient certificate, or an empty array; the reason of a
    // failure goes to the core trace only. A host that refuses part of the tree yields a
    // shorter envelope, not a failure. Sets no error code.
    QByteArray build();

    // Takes an envelope apart into its encrypted key and content (both cleared first). True
    // when encrypted content was found, even without a usable encrypted key. Failures set the
    // error code: 0x2005 without an ASN.1 component, 0x2006 when nothing can be read.
    bool load(QByteArray envelope);

    // The packed key data read back from the encrypted key: the last 32 bytes of each
    // coordinate (all of a shorter one, which moves the later fields forward), the whole HASH
    // and CipherText. Empty when it cannot be parsed. Sets no error code.
    QByteArray GetEncKeyData();

    // Walks a certificate to its serial number and issuer and keeps nothing. False only
    // without an ASN.1 component or when the certificate is not a SEQUENCE; bytes that do not
    // parse at all answer true.
    bool ParseCertData(QByteArray cert);

private:
    QByteArray encKeyData;
    QByteArray encContent;
    QByteArray recCert;
};
