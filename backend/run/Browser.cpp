#include "backend/run/Browser.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <thread>

#include "backend/base/SignalSet.h"
#include "backend/base/Terminal.h"

namespace kivo::backend {

namespace {

/// Starts the program with no signal blocked, in a group of its own, which Ctrl-C does not reach,
/// without the terminal and our connections. A thread waits for its end, so that no zombie is left.
int spawnDetached(std::array<const char*, 3> arguments) {
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    const sigset_t none = signalSet({});
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETPGROUP);
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    for (const int number : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        posix_spawn_file_actions_addopen(&files, number, "/dev/null", O_RDWR, 0);
    posix_spawn_file_actions_addclosefrom_np(&files, STDERR_FILENO + 1);
    pid_t child = 0;
    const int error = posix_spawnp(&child, arguments[0], &files, &attributes,
                                   const_cast<char**>(arguments.data()), environ);
    posix_spawn_file_actions_destroy(&files);
    posix_spawnattr_destroy(&attributes);
    if (error == 0) std::thread([child] { waitpid(child, nullptr, 0); }).detach();
    return error;
}

}  // namespace

void openInBrowser(const std::string& url) {
    if (spawnDetached({"xdg-open", url.c_str(), nullptr}) != 0)
        printError("kivo-dev: xdg-open cannot be started; open this address yourself: " + url +
                   "\n");
}

}  // namespace kivo::backend
