#pragma once
// Digests, Base64 and identifiers, through the system's crypto library.

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vorlo {

// Lower-case hexadecimal SHA-256 of the bytes: 64 characters.
std::string sha256Hex(std::string_view bytes);

// Standard alphabet, with padding, without line breaks.
std::string base64Encode(std::string_view bytes);

// A random version-4 UUID.
class Uuid {
public:
    static Uuid random();
    // Accepts 8-4-4-4-12 hexadecimal digits in either case, nothing else.
    static std::optional<Uuid> parse(std::string_view text);
    // Canonical upper-case 8-4-4-4-12 text.
    std::string text() const;
    bool operator==(const Uuid&) const = default;

private:
    std::array<std::uint8_t, 16> bytes_{};
};

} // namespace vorlo
