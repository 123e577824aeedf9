#pragma once

#include <sys/types.h>

#include <csignal>
#include <optional>
#include <string>
#include <vector>

#include "backend/base/FileDescriptor.h"

namespace kivo::backend {

/// A program started with its standard output and standard error on pipes. It shares our standard
/// input and process group.
class ChildProcess {
public:
    /// `mask` is its signal mask. Throws std::runtime_error, with a message for the user, if the
    /// program cannot be started.
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
