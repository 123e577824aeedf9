#include "backend/base/FileDescriptor.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

namespace kivo::backend {

void throwLastError(const std::filesystem::path& file) {
    throw std::system_error(errno, std::generic_category(), file.string());
}

FileDescriptor::FileDescriptor(int number, std::filesystem::path file)
    : number_(number), file_(std::move(file)) {
    if (number_ < 0) throwLastError(file_);
}

FileDescriptor::~FileDescriptor() { close(); }

void FileDescriptor::close() {
    if (number_ >= 0) ::close(std::exchange(number_, -1));
}

FileDescriptor::FileDescriptor(FileDescriptor&& other) noexcept
    : number_(std::exchange(other.number_, -1)), file_(std::move(other.file_)) {}

void FileDescriptor::write(std::string_view text) const {
    while (!text.empty()) {
        const auto written = ::write(number_, text.data(), text.size());
        if (written < 0 && errno != EINTR) throwLastError(file_);
        if (written > 0) text.remove_prefix(static_cast<std::size_t>(written));
    }
}

std::string contentOf(const std::filesystem::path& file) {
    const FileDescriptor input(open(file.c_str(), O_RDONLY | O_CLOEXEC), file);
    std::string content;
    std::array<char, 16 * 1024> piece{};
    for (ssize_t size = 1; size != 0;) {
        size = read(input.number(), piece.data(), piece.size());
        if (size < 0 && errno != EINTR) throwLastError(file);
        if (size > 0) content.append(piece.data(), static_cast<std::size_t>(size));
    }
    return content;
}

}  // namespace kivo::backend
