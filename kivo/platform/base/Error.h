#pragma once

#include <exception>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

namespace kivo::platform {

/// The base of the platform's errors: a printed form, and a text for the user.
class Error : public std::runtime_error {
public:
    /// `description` is the printed form, and the localized text too unless a class overrides it.
    explicit Error(const std::string& description) : std::runtime_error(description) {}

    virtual std::string description() const { return what(); }
    virtual std::string localizedDescription() const { return what(); }
};

/// An error that consists of a domain and a code.
class NSError : public Error {
public:
    NSError(std::string_view domain, int code);

    int code() const noexcept { return code_; }
    std::string localizedDescription() const override;

private:
    std::runtime_error localized_;  // Its text is shared by copies, so that copying cannot throw.
    int code_;
};

/// The exception that is being handled, to be kept. A std::bad_alloc is replaced by one that was
/// made beforehand: without memory an exception lies in a small reserve of the runtime's, and the
/// process ends when that is exhausted.
std::exception_ptr currentError() noexcept;

/// A std::bad_alloc that was made beforehand.
const std::exception_ptr& lackOfMemory();

/// Whether memory for an exception can be allocated.
bool hasMemoryForError() noexcept;

/// `error`, to be kept; if memory runs out, that is the error.
template <typename Thrown>
std::exception_ptr makeError(Thrown error) noexcept {
    return hasMemoryForError() ? std::make_exception_ptr(std::move(error)) : lackOfMemory();
}

/// The printed form of `error`; what() if it is not one of the platform's.
std::string describe(const std::exception& error);

/// The text about `error` for the user; what() if it is not one of the platform's.
std::string localizedDescription(const std::exception& error);

/// The same for an exception pointer to an error of any type.
std::string describe(const std::exception_ptr& error);
std::string localizedDescription(const std::exception_ptr& error);

}  // namespace kivo::platform
