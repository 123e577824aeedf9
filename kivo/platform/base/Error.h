#pragma once

#include <exception>
#include <stdexcept>
#include <string>
#include <string_view>

namespace kivo::platform {

/// The root of the platform's errors: a printed form, and a text meant for a user.
class Error : public std::runtime_error {
public:
    /// `description` is the printed form; the localized text is the same unless a class says
    /// otherwise.
    explicit Error(const std::string& description) : std::runtime_error(description) {}

    virtual std::string description() const { return what(); }
    virtual std::string localizedDescription() const { return what(); }
};

/// An error that is no more than a domain and a code.
class NSError : public Error {
public:
    NSError(std::string_view domain, int code);

    int code() const noexcept { return code_; }
    std::string localizedDescription() const override;

private:
    std::runtime_error localized_;  // Its text is shared by copies, so that copying cannot throw.
    int code_;
};

/// How `error` is printed; an error that is not the platform's gives its what().
std::string describe(const std::exception& error);

/// What a user would be told of `error`; an error that is not the platform's gives its what().
std::string localizedDescription(const std::exception& error);

/// The same for an error in transit, of whatever type.
std::string describe(const std::exception_ptr& error);
std::string localizedDescription(const std::exception_ptr& error);

}  // namespace kivo::platform
