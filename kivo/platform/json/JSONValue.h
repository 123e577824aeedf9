#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "kivo/platform/base/Data.h"

namespace kivo::platform::JSON {

struct Slot;

/// The keys that a record reads. Nothing else of a body is kept, however large it is.
using Shape = std::span<const Slot>;

/// One such key; `inner` is what is read of its value when that is an object.
struct Slot {
    std::string_view key;
    Shape inner;
};

/// One parsed value, reduced to what a record can read of it.
struct Value {
    enum class Kind { null, boolean, number, text, array, object };
    struct Member;

    Kind kind = Kind::null;
    bool boolean = false;
    std::string text;
    std::vector<Member> members;  ///< Those of the shape that are present, each once.

    Value* find(std::string_view key);
};

struct Value::Member {
    std::string_view key;  ///< The shape's own text.
    Value value;
};

inline constexpr std::size_t maximumDepth = 512;

/// Parses a whole body. Throws DecodingError (dataCorrupted) unless it is one well-formed JSON
/// value, nested at most `maximumDepth` deep; a UTF-8 byte order mark in front is skipped.
Value parse(const Data& data, Shape shape);

}  // namespace kivo::platform::JSON
