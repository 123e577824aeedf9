#include "kivo/platform/base/Error.h"

#include <cstddef>
#include <cstdlib>
#include <new>

namespace kivo::platform {

namespace {

/// The answer of `ask` for one of the platform's errors, and what() for any other.
template <typename Ask>
std::string askOrWhat(const std::exception& error, Ask ask) {
    const auto* ours = dynamic_cast<const Error*>(&error);
    return ours != nullptr ? ask(*ours) : error.what();
}

template <typename Text>
std::string textInTransit(const std::exception_ptr& error, Text text) {
    try {
        std::rethrow_exception(error);
    } catch (const std::exception& exception) {
        return text(exception);
    } catch (...) {
        return "unknown error";
    }
}

}  // namespace

NSError::NSError(std::string_view domain, int code)
    : Error("Error Domain=" + std::string(domain) + " Code=" + std::to_string(code) +
            " \"(null)\""),
      localized_("The operation couldn’t be completed. (" + std::string(domain) + " error " +
                 std::to_string(code) + ".)"),
      code_(code) {}

std::string NSError::localizedDescription() const { return localized_.what(); }

std::exception_ptr currentError() noexcept {
    try {
        throw;
    } catch (const std::bad_alloc&) {
        return lackOfMemory();
    } catch (...) {
        return std::current_exception();
    }
}

const std::exception_ptr& lackOfMemory() {
    alignas(std::exception_ptr) static std::byte place[sizeof(std::exception_ptr)];
    static const auto& made =
        *new (place) std::exception_ptr(std::make_exception_ptr(std::bad_alloc()));
    return made;
}

bool hasMemoryForError() noexcept {
    constexpr std::size_t enough = 512;
    void* const memory = std::malloc(enough);
    std::free(memory);
    return memory != nullptr;
}

std::string describe(const std::exception& error) {
    return askOrWhat(error, [](const Error& ours) { return ours.description(); });
}

std::string localizedDescription(const std::exception& error) {
    return askOrWhat(error, [](const Error& ours) { return ours.localizedDescription(); });
}

std::string describe(const std::exception_ptr& error) {
    return textInTransit(error, [](const std::exception& it) { return describe(it); });
}

std::string localizedDescription(const std::exception_ptr& error) {
    return textInTransit(error, [](const std::exception& it) { return localizedDescription(it); });
}

}  // namespace kivo::platform
