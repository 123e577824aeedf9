#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace kivo::backend {

/// Throws the system's last error as std::system_error, saying which file it is about.
[[noreturn]] void throwLastError(const std::filesystem::path& file);

/// Owns an open file.
class FileDescriptor {
public:
    /// Takes what open(2) returned; throws std::system_error when that was a failure.
    FileDescriptor(int number, std::filesystem::path file);
    ~FileDescriptor();

    FileDescriptor(FileDescriptor&& other) noexcept;
    FileDescriptor& operator=(FileDescriptor&&) = delete;

    int number() const { return number_; }

    /// Earlier than its end would.
    void close();

    /// Writes the whole text or throws std::system_error.
    void write(std::string_view text) const;

private:
    int number_;
    std::filesystem::path file_;
};

/// The whole of a file. Throws std::system_error, saying which file, when it cannot be read.
std::string contentOf(const std::filesystem::path& file);

}  // namespace kivo::backend
