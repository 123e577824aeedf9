#include "kivo/platform/base/UUID.h"

#include <sys/random.h>

#include <algorithm>
#include <array>
#include <random>

namespace kivo::platform {

namespace {

using Bytes = std::array<unsigned char, 16>;

/// From the kernel; in a sandbox that forbids the call, from the standard library's source.
Bytes randomBytes() {
    Bytes bytes{};
    if (getrandom(bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()))
        return bytes;
    std::random_device device;
    std::ranges::generate(bytes, [&] { return static_cast<unsigned char>(device()); });
    return bytes;
}

std::string textOf(const Bytes& bytes) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string text;
    for (std::size_t index = 0; index < bytes.size(); ++index) {
        if (index == 4 || index == 6 || index == 8 || index == 10) text += '-';
        text += digits[bytes[index] >> 4U];
        text += digits[bytes[index] & 0x0FU];
    }
    return text;
}

}  // namespace

UUID::UUID() {
    Bytes bytes = randomBytes();
    bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0FU) | 0x40U);  // Version 4: random.
    bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3FU) | 0x80U);  // The standard's variant.
    text_ = textOf(bytes);
}

}  // namespace kivo::platform
