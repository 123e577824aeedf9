#include <array>
#include <charconv>
#include <cmath>
#include <vector>

#include "kivo/platform/base/Description.h"
#include "kivo/platform/json/JSON.h"

namespace kivo::platform::JSON {

namespace {

using Object = std::map<std::string, std::any>;
using Array = std::vector<std::any>;

constexpr std::size_t longestNumber = 64;

using Text = std::optional<std::string_view>;

Text textAt(const char* pointer) { return pointer != nullptr ? Text(pointer) : std::nullopt; }

Text textIn(const std::any& value) {
    if (const auto* string = std::any_cast<std::string>(&value)) return *string;
    if (const auto* view = std::any_cast<std::string_view>(&value)) return *view;
    if (const auto* constant = std::any_cast<const char*>(&value)) return textAt(*constant);
    if (const auto* pointer = std::any_cast<char*>(&value)) return textAt(*pointer);
    return std::nullopt;
}

/// Writes values of unknown type, remembering the keys that lead to the one at hand.
class Serializer {
public:
    Data output;

    void append(const Object& object) {
        enter();
        char separator = '{';
        for (const auto& [key, value] : object) {
            output += std::exchange(separator, ',');
            keys_.push_back(key);
            JSON::append(output, key);
            output += ':';
            append(value);
            keys_.pop_back();
        }
        output += object.empty() ? "{}" : "}";
        --depth_;
    }

private:
    void append(const std::any& value) {
        if (const auto content = textIn(value)) {
            JSON::append(output, *content);
        } else if (isNullText(value)) {
            output += "null";
        } else if (!appendIfIs<bool, Object, Array, signed char, unsigned char, short,
                               unsigned short, int, unsigned, long, unsigned long, long long,
                               unsigned long long, float, double, long double>(value)) {
            fail(std::string("a value of type ") + value.type().name() + " has no form in JSON");
        }
    }

    static bool isNullText(const std::any& value) {
        return value.type() == typeid(const char*) || value.type() == typeid(char*);
    }

    template <typename... Types>
    bool appendIfIs(const std::any& value) {
        const auto tryOne = [&](const auto* content) {
            if (content != nullptr) append(*content);
            return content != nullptr;
        };
        return (tryOne(std::any_cast<Types>(&value)) || ...);
    }

    void append(const Array& array) {
        enter();
        char separator = '[';
        for (const auto& element : array) {
            output += std::exchange(separator, ',');
            append(element);
        }
        output += array.empty() ? "[]" : "]";
        --depth_;
    }

    void append(bool value) { output += value ? "true" : "false"; }

    template <typename Number>
        requires std::integral<Number> || std::floating_point<Number>
    void append(Number number) {
        if constexpr (std::floating_point<Number>) {
            if (!std::isfinite(number)) fail("the number is not finite");
        }
        std::array<char, longestNumber> digits{};
        const auto end = std::to_chars(digits.begin(), digits.end(), number).ptr;
        output.append(digits.begin(), end);
    }

    void enter() {
        if (++depth_ > maximumDepth) fail("it is nested too deep");
    }

    [[noreturn]] void fail(const std::string& reason) const {
        std::string path;
        for (const auto key : keys_) path.append(path.empty() ? "" : ".").append(key);
        throw EncodingError("cannot encode " + describe(path) + ": " + reason);
    }

    std::vector<std::string_view> keys_;
    std::size_t depth_ = 0;
};

}  // namespace

Data serialize(const Object& parameters) {
    Serializer serializer;
    serializer.append(parameters);
    return std::move(serializer.output);
}

std::optional<std::string> text(const std::any& value) {
    const auto content = textIn(value);
    return content ? std::optional<std::string>(*content) : std::nullopt;
}

}  // namespace kivo::platform::JSON
