// SHA-256, Base64 and random UUIDs through OpenSSL's libcrypto.
#include "platform/Crypto.h"

#include <openssl/evp.h>
#include <openssl/rand.h>

#include <stdexcept>

namespace vorlo {
namespace {

constexpr char kLowerHex[] = "0123456789abcdef";
constexpr char kUpperHex[] = "0123456789ABCDEF";

int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

} // namespace

std::string sha256Hex(std::string_view bytes) {
    unsigned char digest[32];
    unsigned int length = 0;
    // EVP picks the CPU's SHA extensions where there are any.
    if (EVP_Digest(bytes.data(), bytes.size(), digest, &length, EVP_sha256(), nullptr) != 1 || length != 32)
        throw std::runtime_error("SHA-256 is not available.");
    std::string hex(64, '0');
    for (int i = 0; i < 32; ++i) {
        hex[2 * i] = kLowerHex[digest[i] >> 4];
        hex[2 * i + 1] = kLowerHex[digest[i] & 0xF];
    }
    return hex;
}

std::string base64Encode(std::string_view bytes) {
    std::string out(4 * ((bytes.size() + 2) / 3), '\0');
    // EVP_EncodeBlock takes an int length, so encode in whole 3-byte groups of bounded size.
    constexpr std::size_t kBlock = 3 * (1 << 20);
    std::size_t written = 0;
    for (std::size_t at = 0; at < bytes.size(); at += kBlock) {
        const std::size_t n = std::min(kBlock, bytes.size() - at);
        written += static_cast<std::size_t>(
            EVP_EncodeBlock(reinterpret_cast<unsigned char*>(out.data() + written),
                            reinterpret_cast<const unsigned char*>(bytes.data() + at), static_cast<int>(n)));
    }
    out.resize(written);
    return out;
}

Uuid Uuid::random() {
    Uuid uuid;
    if (RAND_bytes(uuid.bytes_.data(), static_cast<int>(uuid.bytes_.size())) != 1)
        throw std::runtime_error("No random bytes are available.");
    uuid.bytes_[6] = static_cast<std::uint8_t>((uuid.bytes_[6] & 0x0F) | 0x40);
    uuid.bytes_[8] = static_cast<std::uint8_t>((uuid.bytes_[8] & 0x3F) | 0x80);
    return uuid;
}

std::optional<Uuid> Uuid::parse(std::string_view text) {
    if (text.size() != 36) return std::nullopt;
    Uuid uuid;
    std::size_t byte = 0;
    for (std::size_t i = 0; i < 36;) {
        if (i == 8 || i == 13 || i == 18 || i == 23) {
            if (text[i] != '-') return std::nullopt;
            ++i;
            continue;
        }
        const int high = hexValue(text[i]), low = hexValue(text[i + 1]);
        if (high < 0 || low < 0) return std::nullopt;
        uuid.bytes_[byte++] = static_cast<std::uint8_t>(high << 4 | low);
        i += 2;
    }
    return uuid;
}

std::string Uuid::text() const {
    std::string out;
    out.reserve(36);
    for (std::size_t i = 0; i < 16; ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) out += '-';
        out += kUpperHex[bytes_[i] >> 4];
        out += kUpperHex[bytes_[i] & 0xF];
    }
    return out;
}

} // namespace vorlo
