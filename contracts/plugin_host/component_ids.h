#pragma once

// The names under which the host hands out its components and the plug-in hands out its
// scriptable object. Both sides ask for them byte for byte ("Cerificate" is the registered
// spelling, and the plug-in's class identifier keeps its odd 8-4-4-20 grouping).
namespace ZtComponentIds {
// What the plug-in asks the host for.
inline constexpr char kSignatureManagerProgId[] = "ZTSIGNATUREMANAGER.ZtSignatureManager.1";
inline constexpr char kSignatureManagerClassId[] = "A3C5E761-0B2F-4D88-B613-2F97C4D1E05B";
inline constexpr char kKeyProgId[] = "ZTKEY.ZtKey.1";
inline constexpr char kKeyClassId[] = "5F02B9D8-61E4-4A37-9C25-D0B3E8A41F76";
inline constexpr char kCertificateProgId[] = "ZTUTIL.ZtCerificate.1";
inline constexpr char kCertificateClassId[] = "";
inline constexpr char kAsnProgId[] = "ZTUTIL.ZtAsn.1";
inline constexpr char kAsnClassId[] = "";

// What the host asks the plug-in for.
inline constexpr char kCryptographicProgId[] = "Crypto.ZtCryptographic.1";
inline constexpr char kCryptographicClassId[] = "7D19A0C4-5522-3333-9E1B84C20D57A6F0";
} // namespace ZtComponentIds
