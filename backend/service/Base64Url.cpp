#include "backend/service/Base64Url.h"

#include <openssl/evp.h>

#include <algorithm>

namespace kivo::backend {

namespace {

const unsigned char* bytesOf(std::string_view text) {
    return reinterpret_cast<const unsigned char*>(text.data());
}

unsigned char* bytesOf(std::string& text) { return reinterpret_cast<unsigned char*>(text.data()); }

}  // namespace

std::string base64UrlEncode(std::string_view bytes) {
    std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0');
    EVP_EncodeBlock(bytesOf(text), bytesOf(bytes), static_cast<int>(bytes.size()));
    text.resize((bytes.size() * 4 + 2) / 3);
    std::ranges::replace(text, '+', '-');
    std::ranges::replace(text, '/', '_');
    return text;
}

std::string base64UrlDecode(std::string_view text) {
    std::string padded(text);
    std::ranges::replace(padded, '-', '+');
    std::ranges::replace(padded, '_', '/');
    padded.resize((text.size() + 3) / 4 * 4, '=');
    std::string bytes(padded.size() / 4 * 3, '\0');
    EVP_DecodeBlock(bytesOf(bytes), bytesOf(padded), static_cast<int>(padded.size()));
    bytes.resize(text.size() * 3 / 4);
    return bytes;
}

}  // namespace kivo::backend
