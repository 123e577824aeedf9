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

/// How to start a program.
struct ChildOptions {
    std::vector<std::string> command;
    std::vector<std::string> environment;
    sigset_t mask{};
    /// Whether its standard output and standard error are pipes to us; otherwise they are ours.
    bool hasPipes = true;
};

/// A program that shares our standard input and process group.
class ChildProcess {
public:
    /// Throws CannotStart.
    explicit ChildProcess(const ChildOptions& options);

    pid_t id() const { return id_; }

    /// Non-blocking.
    const FileDescriptor& output() const { return output_.reading; }
    const FileDescriptor& errors() const { return errors_.reading; }

    /// Closes our end of its standard output or standard error.
    void close(int file);

private:
    struct Pipe {
        FileDescriptor reading;
        FileDescriptor writing;
    };
    static Pipe makePipe();
    void start(const ChildOptions& options);

    Pipe output_;
    Pipe errors_;
    pid_t id_ = -1;
};

/// A change that waitpid(2) reports: that a program has ended, or that it has stopped itself.
class ChildState {
public:
    explicit ChildState(int waitStatus) : waitStatus_(waitStatus) {}

    bool hasStopped() const;

    /// As shells report it: 128 plus the signal's number if a signal ended it.
    int exitStatus() const;

    /// For users, as in "ended with status 7" or "was ended by signal 11 (SEGV)".
    std::string description() const;

private:
    int waitStatus_;
};

/// std::nullopt if nothing has changed since the last call. Reaps a program that has ended.
std::optional<ChildState> changeOf(pid_t id);

}  // namespace kivo::backend
