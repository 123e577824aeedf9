#pragma once

#include <sys/types.h>

#include <csignal>
#include <optional>
#include <string>
#include <vector>

#include "backend/base/FileDescriptor.h"

namespace kivo::backend {

/// A program that was started with its output and its errors on pipes to us. It shares our standard
/// input and process group.
class ChildProcess {
public:
    /// Signals are blocked in it as `mask` says. Throws std::runtime_error, with a text that says
    /// what to do, when the program cannot be started.
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

/// The exit status of a program that has ended, as shells count it: 128 and the signal's number for
/// one that a signal ended. Nothing while it runs. Takes the zombie away.
std::optional<int> reap(pid_t id);

}  // namespace kivo::backend
