#include <algorithm>

#include "kivo/platform/base/CharacterSet.h"
#include "kivo/platform/json/DecodingError.h"
#include "kivo/platform/json/JSONText.h"
#include "kivo/platform/json/JSONValue.h"

namespace kivo::platform::JSON {

namespace {

constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
constexpr CharacterSet whiteSpace(" \t\r\n");
constexpr CharacterSet startsNumber = decimalDigits | CharacterSet("-");
constexpr CharacterSet continuesNumber = startsNumber | CharacterSet("+.eE");

[[noreturn]] void refuse(const std::string& reason) {
    throw DecodingError(DecodingError::Kind::dataCorrupted, "", reason);
}

/// Goes through a body once, from front to back, and keeps what the shape asks for. Needs no stack
/// for nested values, and no memory for what nobody reads.
class Parser {
public:
    explicit Parser(std::string_view json)
        : json_(json),
          rest_(json.substr(json.starts_with(byteOrderMark) ? byteOrderMark.size() : 0)) {}

    Value parse(Shape shape) {
        Value root;
        takeValue(root, shape);
        while (!open_.empty()) takeNext();
        skipWhiteSpace();
        if (!rest_.empty()) refuseNext();
        return root;
    }

private:
    /// An array or object that has not ended yet. The shape of what is skipped is empty.
    struct Level {
        char end;
        Value& value;
        Shape shape;
    };

    /// The next piece of the innermost level: its end, a comma, or an item.
    void takeNext() {
        const Level level = open_.back();
        if (take(level.end)) {
            open_.pop_back();
            isCommaDue_ = true;
        } else if (isCommaDue_) {
            require(',');
            isCommaDue_ = false;
        } else if (level.end == '}') {
            takeMember(level);
        } else {
            takeValue(skipped_, {});
        }
    }

    void takeMember(const Level& object) {
        require('"');
        const auto key = takeText();
        require(':');
        if (const Slot* slot = freeSlot(object, key)) {
            takeValue(object.value.members.emplace_back(slot->key).value, slot->inner);
        } else {
            takeValue(skipped_, {});
        }
    }

    /// What the shape says of `key`, if that is asked for and has not come before.
    static const Slot* freeSlot(const Level& object, std::string_view key) {
        if (object.shape.empty()) return nullptr;
        const auto name = unescaped(key);
        const auto isNamed = [&](const Slot& slot) { return slot.key == name; };
        const auto slot = std::ranges::find_if(object.shape, isNamed);
        if (slot == object.shape.end() || object.value.find(slot->key) != nullptr) return nullptr;
        return &*slot;
    }

    /// All of a value, but only the beginning of an array or object.
    void takeValue(Value& value, Shape shape) {
        if (take('{')) {
            value.kind = Value::Kind::object;
            open({'}', value, shape});
        } else if (take('[')) {
            value.kind = Value::Kind::array;
            open({']', value, {}});
        } else {
            value.kind = takeScalar(value);
            isCommaDue_ = true;
        }
    }

    void open(const Level& level) {
        if (open_.size() == maximumDepth) refuse("nested too deep");
        open_.push_back(level);
        isCommaDue_ = false;
    }

    Value::Kind takeScalar(Value& value) {
        if (take('"')) {
            value.text = takeText();
            return Value::Kind::text;
        }
        value.boolean = rest_.starts_with('t');
        if (takeWord("true") || takeWord("false")) return Value::Kind::boolean;
        if (takeWord("null")) return Value::Kind::null;
        takeNumber();
        return Value::Kind::number;
    }

    void takeNumber() {
        if (startsNumber.prefixLength(rest_.substr(0, 1)) == 0) refuseNext();
        rest_.remove_prefix(continuesNumber.prefixLength(rest_));
    }

    /// The rest of a text, without its closing quote.
    std::string_view takeText() {
        std::size_t end = 0;
        while (end < rest_.size() && rest_[end] != '"') end += rest_[end] == '\\' ? 2 : 1;
        const auto text = rest_.substr(0, end);
        rest_.remove_prefix(text.size());
        require('"');
        return text;
    }

    bool takeWord(std::string_view word) {
        const bool isNext = rest_.starts_with(word);
        if (isNext) rest_.remove_prefix(word.size());
        return isNext;
    }

    void require(char token) {
        if (!take(token)) refuseNext();
    }

    /// Passes over white space, and over `token` if it is next.
    bool take(char token) {
        skipWhiteSpace();
        const bool isNext = rest_.starts_with(token);
        if (isNext) rest_.remove_prefix(1);
        return isNext;
    }

    void skipWhiteSpace() { rest_.remove_prefix(whiteSpace.prefixLength(rest_)); }

    [[noreturn]] void refuseNext() const {
        const auto position = json_.size() - rest_.size() + 1;
        refuse("not valid JSON at byte " + std::to_string(position));
    }

    const std::string_view json_;
    std::string_view rest_;
    std::vector<Level> open_;
    Value skipped_;
    bool isCommaDue_ = false;
};

}  // namespace

Value parse(std::string_view json, Shape shape) {
    if (json.empty()) refuse("there is no data");
    return Parser(json).parse(shape);
}

}  // namespace kivo::platform::JSON
