#include "backend/FileDescriptor.h"

#include <unistd.h>

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

}  // namespace kivo::backend
