#pragma once

#include <concepts>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>

#include "kivo/platform/HostFlags.h"

namespace kivo::platform {

/// One field of a record: the member, and the name under which it is encoded and printed.
template <typename Owner, typename Value>
struct Field {
    std::string_view name;
    Value Owner::* member;
};

template <typename Owner, typename Value>
constexpr Field<Owner, Value> field(std::string_view name, Value Owner::* member) {
    return {name, member};
}

/// An aggregate that lists its fields, in declaration order, as `static constexpr auto fields =
/// std::tuple{field(…), …}`, and names its type, as it is printed, in `static std::string
/// typeName()`. A field is a std::string, a bool, or an optional text or record.
template <typename T>
concept Record = requires {
    std::tuple_size<std::remove_cvref_t<decltype(T::fields)>>::value;
    { T::typeName() } -> std::convertible_to<std::string>;
};

/// The type inside a std::optional; any other type itself.
template <typename T>
struct OptionalContent {
    using Type = T;
};

template <typename T>
struct OptionalContent<std::optional<T>> {
    using Type = T;
};

template <typename T>
inline constexpr bool isOptional = !std::same_as<T, typename OptionalContent<T>::Type>;

}  // namespace kivo::platform
