#pragma once

#include "zt_export.h"

// The process-wide last-error code, shared by every object of the library. A successful call
// never clears it. Not locked: the library runs on the host's one calling thread.

// Stores all 64 bits of `code`.
ZT_EXPORT void SetCryptoErrorCode(unsigned long code);

// The UTF-8 message for the current code; the code is not reset. Codes of the table compare on
// all 64 bits. Any other code, 0 included, reads "errorcode : [N]" with N its low 32 bits as a
// signed decimal; that text stays valid until the next call on the same thread.
ZT_EXPORT const char *ZtCryptoGetErrMessage();

// Library codes that the library's own operations set, by name.
namespace ZtError {
constexpr unsigned long kNoKeyDevice = 1000;                   // 0x3E8
constexpr unsigned long kWrongPin = 1007;                      // 0x3EF
constexpr unsigned long kEncryptionCertificateNotRead = 0x2008;
constexpr unsigned long kNoCertificateContainer = 0x0D000041;  // empty container list
constexpr unsigned long kUnknownDeviceError = 0x0A000002;      // SAR_UNKNOWNERR
constexpr unsigned long kCertificateNotFound = 0x0A00001C;     // SAR_CERTNOTFOUNTERR
constexpr unsigned long kContainerNotFound = 0x0B000035;
constexpr unsigned long kKeyDeviceMismatch = 0x2002;           // session key not imported
constexpr unsigned long kDecryptInitFailed = 0x2003;
constexpr unsigned long kDecryptFailed = 0x2004;
constexpr unsigned long kModuleLoadFailed = 0x2005;            // no ASN.1 component
constexpr unsigned long kEnvelopeParseFailed = 0x2006;
} // namespace ZtError
