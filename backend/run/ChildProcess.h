#pragma once

#include <sys/types.h>

#include <csignal>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "backend/base/FileDescriptor.h"

namespace kivo::backend {

/// A program cannot be started; the message is for the user.
class CannotStart : public std::runtime_error {
public:
    CannotStart(const std::string& message, int status)
        : std::runtime_error(message), status_(status) {}

    /// What to end with, as shells do: 127 if there is no such program, otherwise 126.
    int status() const { return status_; }

private:
    int status_;
};

/// A program started with its standard output and standard error on pipes. It shares our standard
/// input and process group.
class ChildProcess {
public:
    /// `mask` is its signal mask. Throws CannotStart.
    ChildProcess(const std::vector<std::string>& command,
                 const std::vector<std::string>& environment, const sigset_t& mask);

    pid_t id() const { return id_; }

    /// Non-blocking.
    const FileDescriptor& output() const { return output_.reading; }
    const FileDescriptor& errors() const { return errors_.reading; }

private:
    struct Pipe {
        FileDescriptor reading;
        FileDescriptor writing;
    };
    static Pipe makePipe();
    void start(const std::vector<std::string>& command, const std::vector<std::string>& environment,
               const sigset_t& mask);

    Pipe output_;
    Pipe errors_;
    pid_t id_ = -1;
};

/// The exit status of a program that has ended, as shells report it: 128 plus the signal number if
/// a signal ended it. std::nullopt while it runs. Reaps the process.
std::optional<int> reap(pid_t id);

}  // namespace kivo::backend
