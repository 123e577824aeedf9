#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace kivo::platform {

/// The folder name for an application: its identifier if that is a safe name, otherwise a stable
/// hash of it.
std::string folderName(std::string_view identifier);

/// The folder for this application's state: below the user's state directory, named after the
/// bundle identifier or, without one, after the program. Empty if the user has no state directory.
std::optional<std::filesystem::path> applicationStateFolder();

}  // namespace kivo::platform
