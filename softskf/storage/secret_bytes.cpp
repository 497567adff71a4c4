#include "secret_bytes.h"

#include <openssl/crypto.h>

#include <cstring>

namespace softskf {

SecretBytes::SecretBytes(std::size_t size) : bytes_(size, 0) {}

SecretBytes::SecretBytes(const unsigned char *data, std::size_t size) : bytes_(size, 0)
{
    if (size != 0)
        std::memcpy(bytes_.data(), data, size);
}

SecretBytes::~SecretBytes()
{
    clear();
}

SecretBytes::SecretBytes(SecretBytes &&other) noexcept : bytes_(std::move(other.bytes_))
{
    other.bytes_.clear();
}

SecretBytes &SecretBytes::operator=(SecretBytes &&other) noexcept
{
    if (this != &other) {
        clear();
        bytes_ = std::move(other.bytes_);
        other.bytes_.clear();
    }
    return *this;
}

void SecretBytes::clear()
{
    if (!bytes_.empty())
        OPENSSL_cleanse(bytes_.data(), bytes_.size());
    bytes_.clear();
    bytes_.shrink_to_fit();
}

} // namespace softskf
