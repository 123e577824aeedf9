#include <nlohmann/json.hpp>

#include <algorithm>
#include <variant>

#include "kivo/platform/json/DecodingError.h"
#include "kivo/platform/json/JSONMalformedText.h"
#include "kivo/platform/json/JSONValue.h"

namespace kivo::platform::JSON {

namespace {

/// Takes the parser's events and keeps what the shape asks for. Needs no stack for nested values,
/// and no memory for what nobody reads.
class ShapeReader final : public nlohmann::json_sax<nlohmann::json> {
public:
    /// `isMarked` says that a text with a mark in it is malformed, and must not be read.
    ShapeReader(Value& root, Shape shape, bool isMarked)
        : next_(&root), nextShape_(shape), isMarked_(isMarked) {}

    const std::string& complaint() const { return complaint_; }

    bool null() override { return put(Value::Kind::null); }
    bool number_integer(number_integer_t) override { return put(Value::Kind::number); }
    bool number_unsigned(number_unsigned_t) override { return put(Value::Kind::number); }
    bool number_float(number_float_t, const string_t&) override { return put(Value::Kind::number); }
    bool binary(binary_t&) override { return false; }

    bool boolean(bool value) override {
        if (next_ != nullptr) next_->boolean = value;
        return put(Value::Kind::boolean);
    }

    bool string(string_t& text) override {
        if (next_ != nullptr) {
            if (isMarked_ && text.find(malformedMark) != string_t::npos) return false;
            next_->text = std::move(text);
        }
        return put(Value::Kind::text);
    }

    bool start_object(std::size_t) override { return open(Value::Kind::object); }
    bool end_object() override { return close(); }
    bool start_array(std::size_t) override { return open(Value::Kind::array); }
    bool end_array() override { return close(); }

    /// Makes room for the value of a key that is asked for and has not come before.
    bool key(string_t& key) override {
        const Level& level = open_.back();
        const auto slot = std::ranges::find(level.shape, std::string_view(key), &Slot::key);
        if (slot == level.shape.end() || level.object->find(slot->key) != nullptr) return true;
        next_ = &level.object->members.emplace_back(slot->key).value;
        nextShape_ = slot->inner;
        return true;
    }

    bool parse_error(std::size_t position, const std::string&,
                     const nlohmann::detail::exception&) override {
        complaint_ = "not valid JSON at byte " + std::to_string(position);
        return false;
    }

private:
    struct Level {
        Value* object;
        Shape shape;  // Empty in what is skipped.
    };

    bool put(Value::Kind kind) {
        if (next_ != nullptr) next_->kind = kind;
        next_ = nullptr;
        return true;
    }

    bool open(Value::Kind kind) {
        if (open_.size() == maximumDepth) {
            complaint_ = "nested too deep";
            return false;
        }
        const bool isRead = next_ != nullptr && kind == Value::Kind::object;
        open_.push_back({next_, isRead ? nextShape_ : Shape()});
        if (isRead) next_->members.reserve(nextShape_.size());
        return put(kind);
    }

    bool close() {
        open_.pop_back();
        return true;
    }

    Value* next_;  // Where the next value goes; null when it is not kept.
    Shape nextShape_;
    const bool isMarked_;
    std::vector<Level> open_;
    std::string complaint_;
};

[[noreturn]] void refuse(const std::string& reason) {
    throw DecodingError(DecodingError::Kind::dataCorrupted, "", reason);
}

/// What `data` holds, or why it cannot be read.
std::variant<Value, std::string> attempt(const Data& data, Shape shape, bool isMarked) {
    // The parser would take it for the end.
    if (data.find('\0') != Data::npos) return "it holds a NUL byte";
    Value root;
    ShapeReader reader(root, shape, isMarked);
    if (nlohmann::json::sax_parse(data, &reader)) return root;
    return reader.complaint();
}

}  // namespace

/// A reply fails only for a malformed text that is read, so one that holds such gets a second try.
Value parse(const Data& data, Shape shape) {
    if (data.empty()) refuse("there is no data");
    auto result = attempt(data, shape, false);
    if (auto* value = std::get_if<Value>(&result)) return std::move(*value);
    const Data marked = withMalformedTextMarked(data);
    if (marked != data) {
        auto second = attempt(marked, shape, true);
        if (auto* value = std::get_if<Value>(&second)) return std::move(*value);
    }
    refuse(std::get<std::string>(result));
}

}  // namespace kivo::platform::JSON
