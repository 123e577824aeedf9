#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace kivo::backend {

/// Throws errno as std::system_error; the message names the file.
[[noreturn]] void throwLastError(const std::filesystem::path& file);

/// Owns an open file descriptor.
class FileDescriptor {
public:
    /// Takes the result of open(2); throws std::system_error if that failed.
    FileDescriptor(int number, std::filesystem::path file);
    ~FileDescriptor();

    FileDescriptor(FileDescriptor&& other) noexcept;
    FileDescriptor& operator=(FileDescriptor&&) = delete;

    int number() const { return number_; }

    /// Closes it before the destructor would.
    void close();

    /// Writes the whole text; throws std::system_error on failure.
    void write(std::string_view text) const;

private:
    int number_;
    std::filesystem::path file_;
};

/// The whole content of a file. Throws std::system_error, which names the file, if it cannot be
/// read.
std::string contentOf(const std::filesystem::path& file);

}  // namespace kivo::backend
