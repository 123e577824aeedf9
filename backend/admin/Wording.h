#pragma once

#include <nlohmann/json_fwd.hpp>

#include <string>

namespace kivo::backend {

/// As in "1 hit" and "2 hits".
std::string counted(const nlohmann::json& count, const std::string& one);

/// JSON whose strings cannot control a terminal.
std::string inAscii(const nlohmann::json& value);

/// The text with "?" for each control character, those above ASCII included.
std::string harmless(std::string text);

/// Tells that values are masked, and how to see them.
inline const std::string maskingNote =
    "secrets are shortened; start the backend with --show-secrets to see them";

}  // namespace kivo::backend
