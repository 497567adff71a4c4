#pragma once

#include <cstddef>
#include <vector>

namespace softskf::der {

// Minimal DER encoding of the few shapes the device builds itself. Definite lengths only.

// INTEGER of a non-negative big-endian magnitude: leading zeros dropped, one 0x00 put back
// when the top bit is set, zero encoded as a single 0x00 byte.
void appendUnsignedInteger(std::vector<unsigned char> &out, const unsigned char *magnitude,
                           std::size_t length);
void appendOctetString(std::vector<unsigned char> &out, const unsigned char *data,
                       std::size_t length);
// SEQUENCE around already-encoded contents.
std::vector<unsigned char> sequence(const std::vector<unsigned char> &contents);

} // namespace softskf::der
