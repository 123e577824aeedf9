#pragma once

#include <array>
#include <cstddef>
#include <string_view>

namespace kivo::platform {

/// A set of single-byte characters, built at compile time; a query is one table lookup.
class CharacterSet {
public:
    constexpr explicit CharacterSet(std::string_view members) {
        for (const char c : members) table_[index(c)] = true;
    }

    /// All characters from `first` to `last`, inclusive.
    constexpr CharacterSet(char first, char last) {
        for (std::size_t c = index(first); c <= index(last); ++c) table_[c] = true;
    }

    friend constexpr CharacterSet operator|(CharacterSet one, const CharacterSet& other) {
        for (std::size_t c = 0; c < one.table_.size(); ++c) one.table_[c] |= other.table_[c];
        return one;
    }

    constexpr CharacterSet inverted() const {
        CharacterSet others("");
        for (std::size_t c = 0; c < table_.size(); ++c) others.table_[c] = !table_[c];
        return others;
    }

    constexpr bool contains(char c) const { return table_[index(c)]; }

    /// How many members `text` begins with.
    std::size_t prefixLength(std::string_view text) const {
        std::size_t length = 0;
        while (length < text.size() && contains(text[length])) ++length;
        return length;
    }

    bool containsAll(std::string_view text) const { return prefixLength(text) == text.size(); }

private:
    static constexpr std::size_t index(char c) { return static_cast<unsigned char>(c); }

    std::array<bool, 256> table_{};
};

inline constexpr CharacterSet decimalDigits('0', '9');
inline constexpr CharacterSet letters = CharacterSet('a', 'z') | CharacterSet('A', 'Z');
inline constexpr CharacterSet alphanumerics = letters | decimalDigits;

}  // namespace kivo::platform
