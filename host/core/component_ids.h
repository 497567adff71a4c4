#pragma once

// Creation identifiers under which the host core hands out its components. They are the names
// the plug-in asks for, byte for byte ("Cerificate" is the registered spelling).
namespace zthost::ComponentIds {
inline constexpr char kSignatureManagerProgId[] = "ZTSIGNATUREMANAGER.ZtSignatureManager.1";
inline constexpr char kSignatureManagerClassId[] = "A3C5E761-0B2F-4D88-B613-2F97C4D1E05B";
inline constexpr char kKeyProgId[] = "ZTKEY.ZtKey.1";
inline constexpr char kKeyClassId[] = "5F02B9D8-61E4-4A37-9C25-D0B3E8A41F76";
inline constexpr char kCertificateProgId[] = "ZTUTIL.ZtCerificate.1";
inline constexpr char kAsnProgId[] = "ZTUTIL.ZtAsn.1";

// What the host asks the plug-in for.
inline constexpr char kCryptographicProgId[] = "Crypto.ZtCryptographic.1";
} // namespace zthost::ComponentIds
