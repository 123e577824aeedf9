#include "backend/admin/Wording.h"

#include <nlohmann/json.hpp>

namespace kivo::backend {

using nlohmann::json;

std::string counted(const json& count, const std::string& one) {
    return count.dump() + " " + one + (count == 1 ? "" : "s");
}

std::string inAscii(const json& value) { return value.dump(-1, ' ', true); }

std::string harmless(std::string text) {
    for (std::size_t at = 0; at < text.size(); ++at) {
        const auto byte = static_cast<unsigned char>(text[at]);
        const bool longControl = at > 0 && text[at - 1] == '\xC2' && byte >= 0x80 && byte < 0xA0;
        if (byte < ' ' || byte == 0x7F || longControl) text[at] = '?';
    }
    return text;
}

}  // namespace kivo::backend
