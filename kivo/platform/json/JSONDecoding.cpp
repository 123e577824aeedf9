#include "kivo/platform/json/JSONDecoding.h"

#include <algorithm>

#include "kivo/platform/system/FatalError.h"

namespace kivo::platform::JSON {

namespace {

std::string nameOf(Value::Kind kind) {
    switch (kind) {
        case Value::Kind::null: return "null";
        case Value::Kind::boolean: return "a Boolean";
        case Value::Kind::number: return "a number";
        case Value::Kind::text: return "a text";
        case Value::Kind::array: return "an array";
        case Value::Kind::object: return "an object";
    }
    fatalError("not a kind of JSON value");
}

}  // namespace

Value* Value::find(std::string_view key) {
    const auto found = std::ranges::find(members, key, &Member::key);
    return found != members.end() ? &found->value : nullptr;
}

std::string KeyPath::text() const {
    if (outer == nullptr) return std::string(key);
    const std::string before = outer->text();
    return before.empty() ? std::string(key) : before + "." + std::string(key);
}

void requireKind(const Value& value, Value::Kind expected, const KeyPath& path) {
    if (value.kind == expected) return;
    const auto error = value.kind == Value::Kind::null ? DecodingError::Kind::valueNotFound
                                                       : DecodingError::Kind::typeMismatch;
    throw DecodingError(error, path.text(),
                        "expected " + nameOf(expected) + ", found " + nameOf(value.kind));
}

Value& requireMember(Value& object, std::string_view key, const KeyPath& path) {
    if (Value* value = object.find(key)) return *value;
    throw DecodingError(DecodingError::Kind::keyNotFound, path.text(), "there is no such key");
}

}  // namespace kivo::platform::JSON
