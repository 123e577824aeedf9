#pragma once

#include <span>
#include <string_view>
#include <vector>

namespace kivo::platform::JSON {

struct Slot;

/// The keys that a record reads. Nothing else of a body is kept, however large it is.
using Shape = std::span<const Slot>;

/// One such key; `inner` is what is read of its value when that is an object.
struct Slot {
    std::string_view key;
    Shape inner;
};

/// One parsed value, reduced to what a record can read of it. Refers to the body that it was parsed
/// from.
struct Value {
    enum class Kind { null, boolean, number, text, array, object };
    struct Member;

    Kind kind = Kind::null;
    bool boolean = false;
    std::string_view text;        ///< What stands between the quotes.
    std::vector<Member> members;  ///< Those of the shape that are present, each once.

    const Value* find(std::string_view key) const;
};

struct Value::Member {
    std::string_view key;  ///< The shape's own text.
    Value value;
};

inline constexpr std::size_t maximumDepth = 512;

/// Parses a whole body. Throws DecodingError (dataCorrupted) unless it is one JSON value, nested at
/// most `maximumDepth` deep. A UTF-8 byte order mark in front is skipped, a comma behind the last
/// item of an array or object too; texts and numbers are delimited, not examined.
Value parse(std::string_view json, Shape shape);

}  // namespace kivo::platform::JSON
