#include "der_writer.h"

namespace softskf::der {

namespace {

constexpr unsigned char kTagInteger = 0x02;
constexpr unsigned char kTagOctetString = 0x04;
constexpr unsigned char kTagSequence = 0x30;
constexpr std::size_t kLongestShortFormLength = 0x7f;
constexpr unsigned char kLongFormFlag = 0x80;

void appendLength(std::vector<unsigned char> &out, std::size_t length)
{
    if (length <= kLongestShortFormLength) {
        out.push_back(static_cast<unsigned char>(length));
        return;
    }
    unsigned char bytes[sizeof(std::size_t)];
    std::size_t count = 0;
    for (std::size_t rest = length; rest != 0; rest >>= 8)
        bytes[count++] = static_cast<unsigned char>(rest);
    out.push_back(static_cast<unsigned char>(kLongFormFlag | count));
    while (count != 0)
        out.push_back(bytes[--count]);
}

} // namespace

void appendUnsignedInteger(std::vector<unsigned char> &out, const unsigned char *magnitude,
                           std::size_t length)
{
    std::size_t first = 0;
    while (first < length && magnitude[first] == 0)
        ++first;
    const std::size_t significant = length - first;
    const bool needsSignByte = significant == 0 || (magnitude[first] & 0x80) != 0;
    out.push_back(kTagInteger);
    appendLength(out, significant + (needsSignByte ? 1 : 0));
    if (needsSignByte)
        out.push_back(0x00);
    out.insert(out.end(), magnitude + first, magnitude + length);
}

void appendOctetString(std::vector<unsigned char> &out, const unsigned char *data,
                       std::size_t length)
{
    out.push_back(kTagOctetString);
    appendLength(out, length);
    out.insert(out.end(), data, data + length);
}

std::vector<unsigned char> sequence(const std::vector<unsigned char> &contents)
{
    std::vector<unsigned char> out;
    out.reserve(contents.size() + 6);
    out.push_back(kTagSequence);
    appendLength(out, contents.size());
    out.insert(out.end(), contents.begin(), contents.end());
    return out;
}

} // namespace softskf::der
