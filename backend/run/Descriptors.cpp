#include "backend/run/Descriptors.h"

#include <fcntl.h>

#include <charconv>
#include <filesystem>
#include <string>

namespace kivo::backend {

std::set<int> openDescriptors() {
    std::set<int> numbers;
    std::error_code unreadable;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd", unreadable)) {
        const std::string name = entry.path().filename();
        int number = -1;
        std::from_chars(name.data(), name.data() + name.size(), number);
        numbers.insert(number);
    }
    std::erase_if(numbers, [](int number) { return fcntl(number, F_GETFD) < 0; });
    return numbers;
}

void keepFromPrograms(const std::set<int>& inherited) {
    for (const int number : openDescriptors()) {
        if (!inherited.contains(number)) fcntl(number, F_SETFD, FD_CLOEXEC);
    }
}

}  // namespace kivo::backend
