#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>

#include "kivo/platform/Record.h"
#include "kivo/platform/json/DecodingError.h"
#include "kivo/platform/json/JSONValue.h"

/// How records are read from parsed values; `JSON::decode` is the way in.
namespace kivo::platform::JSON {

/// Where a value was found: a chain of keys, the innermost first, that lives on the stack of the
/// reader.
struct KeyPath {
    const KeyPath* outer = nullptr;
    std::string_view key;

    std::string text() const;
};

template <typename T>
constexpr Shape innerShape();

template <Record T>
inline constexpr auto slotsOf = std::apply(
    [](const auto&... field) {
        return std::array{
            Slot{field.name, innerShape<std::remove_cvref_t<decltype(T{}.*field.member)>>()}...};
    },
    T::fields);

/// What a record of type `T` reads of an object.
template <Record T>
inline constexpr Shape shapeOf{slotsOf<T>};

template <typename T>
constexpr Shape innerShape() {
    using Content = typename OptionalContent<T>::Type;
    if constexpr (Record<Content>) {
        return shapeOf<Content>;
    } else {
        return {};
    }
}

void requireKind(const Value& value, Value::Kind expected, const KeyPath& path);
std::string requireText(const Value& value, const KeyPath& path);
const Value& requireMember(const Value& object, const KeyPath& path);

template <Record T>
T read(const Value& value, const KeyPath& path);

template <typename T>
T readContent(const Value& value, const KeyPath& path) {
    if constexpr (Record<T>) {
        return read<T>(value, path);
    } else if constexpr (std::same_as<T, bool>) {
        requireKind(value, Value::Kind::boolean, path);
        return value.boolean;
    } else {
        static_assert(std::same_as<T, std::string>, "a field holds text, a Boolean or a record");
        return requireText(value, path);
    }
}

template <typename T>
T readField(const Value& object, const KeyPath& path) {
    if constexpr (isOptional<T>) {
        const Value* value = object.find(path.key);
        if (value == nullptr || value->kind == Value::Kind::null) return std::nullopt;
        return readContent<typename T::value_type>(*value, path);
    } else {
        return readContent<T>(requireMember(object, path), path);
    }
}

template <Record T>
T read(const Value& value, const KeyPath& path) {
    requireKind(value, Value::Kind::object, path);
    T record{};
    const auto fill = [&]<typename Content>(const Field<T, Content>& field) {
        record.*field.member = readField<Content>(value, KeyPath{&path, field.name});
    };
    std::apply([&](const auto&... field) { (fill(field), ...); }, T::fields);
    return record;
}

}  // namespace kivo::platform::JSON
