#include "kivo/platform/system/ApplicationFolder.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>

#include "kivo/platform/Bundle.h"
#include "kivo/platform/system/Environment.h"

namespace kivo::platform {

namespace {

constexpr std::size_t longestSafeName = 200;

constexpr bool isSafeCharacter(char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '.' ||
           c == '_' || c == '-';
}

bool isSafeName(std::string_view text) {
    return !text.empty() && text.size() <= longestSafeName && text.front() != '.' &&
           std::ranges::all_of(text, isSafeCharacter);
}

/// 64-bit FNV-1a, starting from `value`.
std::uint64_t hash(std::string_view text, std::uint64_t value) {
    for (const char c : text) value = (value ^ static_cast<unsigned char>(c)) * 0x100000001b3U;
    return value;
}

std::string hashedName(std::string_view text) {
    const std::uint64_t first = hash(text, 0xcbf29ce484222325U);
    const std::uint64_t second = hash(text, ~first);
    std::array<char, 40> name{};
    std::snprintf(name.data(), name.size(), "id-%016llx%016llx",
                  static_cast<unsigned long long>(first), static_cast<unsigned long long>(second));
    return name.data();
}

}  // namespace

std::string folderName(std::string_view identifier) {
    return isSafeName(identifier) ? std::string(identifier) : hashedName(identifier);
}

std::optional<std::filesystem::path> applicationStateFolder() {
    const Environment& environment = Environment::current();
    if (!environment.stateDirectory) return std::nullopt;
    const auto owner = Bundle::mainIdentifier().value_or(environment.programName);
    return *environment.stateDirectory / "kivo" / folderName(owner);
}

}  // namespace kivo::platform
