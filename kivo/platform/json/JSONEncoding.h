#pragma once

#include <concepts>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>

#include "kivo/platform/Record.h"
#include "kivo/platform/base/Data.h"
#include "kivo/platform/base/Error.h"
#include "kivo/platform/json/JSONText.h"

/// How values are written as JSON; `JSON::encode` and `JSON::serialize` are the ways in.
namespace kivo::platform::JSON {

/// Why a value could not be written as JSON; its text names the key.
class EncodingError : public Error {
public:
    using Error::Error;

    std::string localizedDescription() const override {
        return "The data couldn’t be written because it isn’t in the correct format.";
    }
};

inline void append(Data& output, std::same_as<bool> auto value) {
    output += value ? "true" : "false";
}

template <Record T>
void append(Data& output, const T& record) {
    const auto start = output.size();
    const auto member = [&](std::string_view name, const auto& value) {
        output += output.size() == start ? '{' : ',';
        append(output, name);
        output += ':';
        append(output, value);
    };
    const auto memberIfPresent = [&]<typename Content>(const Field<T, Content>& field) {
        if constexpr (requires { (record.*field.member).has_value(); }) {
            if (record.*field.member) member(field.name, *(record.*field.member));
        } else {
            member(field.name, record.*field.member);
        }
    };
    std::apply([&](const auto&... field) { (memberIfPresent(field), ...); }, T::fields);
    output += output.size() == start ? "{}" : "}";
}

}  // namespace kivo::platform::JSON
