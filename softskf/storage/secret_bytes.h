#pragma once

#include <cstddef>
#include <vector>

namespace softskf {

// Key material and PIN-derived bytes: a fixed-size buffer wiped when it goes away, so a
// closed application or session key leaves nothing readable behind in freed memory.
// Never resized after construction, so no stale copy is left by a reallocation.
class SecretBytes {
public:
    SecretBytes() = default;
    explicit SecretBytes(std::size_t size);
    SecretBytes(const unsigned char *data, std::size_t size);
    ~SecretBytes();

    SecretBytes(SecretBytes &&other) noexcept;
    SecretBytes &operator=(SecretBytes &&other) noexcept;
    SecretBytes(const SecretBytes &) = delete;
    SecretBytes &operator=(const SecretBytes &) = delete;

    unsigned char *data() { return bytes_.data(); }
    const unsigned char *data() const { return bytes_.data(); }
    std::size_t size() const { return bytes_.size(); }
    bool empty() const { return bytes_.empty(); }

    // Wipes and empties.
    void clear();

private:
    std::vector<unsigned char> bytes_;
};

} // namespace softskf
