#include "kivo/platform/json/JSONDecoding.h"

#include <algorithm>
#include <array>

#include "kivo/platform/json/JSONText.h"

namespace kivo::platform::JSON {

namespace {

std::string nameOf(Value::Kind kind) {
    constexpr std::array names = {"null",   "a Boolean", "a number",
                                  "a text", "an array",  "an object"};
    return names.at(static_cast<std::size_t>(kind));
}

}  // namespace

const Value* Value::find(std::string_view key) const {
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

std::string requireText(const Value& value, const KeyPath& path) {
    requireKind(value, Value::Kind::text, path);
    if (auto text = unescaped(value.text)) return *std::move(text);
    throw DecodingError(DecodingError::Kind::dataCorrupted, path.text(), "the text is malformed");
}

const Value& requireMember(const Value& object, const KeyPath& path) {
    if (const Value* value = object.find(path.key)) return *value;
    throw DecodingError(DecodingError::Kind::keyNotFound, path.text(), "there is no such key");
}

}  // namespace kivo::platform::JSON
