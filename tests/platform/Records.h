#pragma once

#include <optional>
#include <string>
#include <tuple>

#include "kivo/platform/Record.h"

namespace kivo::tests {

/// Records that have every kind of field, for the tests of what is generic over records.
struct Person {
    std::string name;
    std::optional<std::string> phone;

    static constexpr auto fields = std::tuple{platform::field("name", &Person::name),
                                              platform::field("phone", &Person::phone)};
    static std::string typeName() { return "Test.Person"; }
};

template <typename T>
struct Envelope {
    bool success;
    std::string message;
    std::optional<T> data;

    static constexpr auto fields = std::tuple{platform::field("success", &Envelope::success),
                                              platform::field("message", &Envelope::message),
                                              platform::field("data", &Envelope::data)};
    static std::string typeName() { return "Test.Envelope<" + T::typeName() + ">"; }
};

}  // namespace kivo::tests
