#pragma once

// The algorithm of the session key inside every digital envelope: SM4 in ECB mode, the smart-key
// interface's SGD_SM4_ECB. The plug-in imports the key under this identifier whatever a page
// asks for, so envelope makers and callers of WebZtDecode use it too.
namespace ZtSessionKey {
inline constexpr unsigned long long kAlgorithmId = 0x401;
} // namespace ZtSessionKey
