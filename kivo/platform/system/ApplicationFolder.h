#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace kivo::platform {

/// The folder name that belongs to an application: its identifier if that is safe as one, else a
/// stable hash of it.
std::string folderName(std::string_view identifier);

/// Where this application keeps its state: below the user's state directory, under the bundle's
/// identifier or, without one, the program's name. None when the user has no such directory.
std::optional<std::filesystem::path> applicationStateFolder();

}  // namespace kivo::platform
