#pragma once

#include <filesystem>
#include <string>

namespace kivo::backend {

/// A temporary folder of one run, which only its owner can enter. The destructor removes it.
class RunFolder {
public:
    /// Throws std::runtime_error, with a message for the user, if it cannot be created.
    RunFolder();
    ~RunFolder();

    RunFolder(const RunFolder&) = delete;
    RunFolder& operator=(const RunFolder&) = delete;

    const std::filesystem::path& path() const { return path_; }

    /// Writes the certificates that a program is to trust into a file, readable by its owner only;
    /// returns its path. Throws as the constructor does.
    std::string writeTrustFile(const std::string& certificates) const;

private:
    const std::filesystem::path path_;
};

/// Removes the folder if it can, and never throws.
void removeFolder(const std::filesystem::path& folder);

}  // namespace kivo::backend
