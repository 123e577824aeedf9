// A host application for the tests, told by its arguments what to do, one after the other.

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <string>
#include <thread>

#include "kivo/platform/Bundle.h"
#include "kivo/platform/TaskPool.h"
#include "kivo/sdk/KivoSDK.h"

namespace {

using kivo::KivoSDK;

void everyOperation() {
    const auto plugin = KivoSDK::initialise({.apiKey = "key"});
    plugin->setUser("40", "711", "ana@example.com", "Ana");
    plugin->updateDeviceToken("t");
    plugin->setNotificationPermission(true);
    plugin->onMessageReceived({{"notification", {{"image", "https://localhost/a.png"}}}});
    plugin->onMessageReceived({});
    plugin->unsetUser();
}

void await() {
    const bool idle = kivo::platform::TaskPool::shared().waitUntilIdle(std::chrono::seconds(60));
    if (!idle) std::cout << "not idle" << std::endl;
}

bool inChild = false;

/// A child of a process whose threads it does not have: every call must come back and do nothing.
void inAForkedChild() {
#ifdef __SANITIZE_ADDRESS__
    await();  // Its allocator hands a lock that a busy thread holds on to the child.
#endif
    const pid_t child = fork();
    inChild = child == 0;
    if (child == 0) {
        everyOperation();
        kivo::platform::TaskPool::shared().waitUntilIdle(std::chrono::seconds(1));
        std::exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    std::cout << "child ended with " << status << std::endl;
}

template <typename Counts>
long entriesOf(const char* folder, Counts counts) {
    const std::filesystem::directory_iterator entries(folder);
    return std::count_if(begin(entries), end(entries), counts);
}

/// Kivo's threads are the ones that are not named after the program.
bool isKivoThread(const std::filesystem::directory_entry& thread) {
    std::string name;
    std::ifstream(thread.path() / "comm") >> name;
    return !name.starts_with("kivo-test-host");
}

void printFigures() {
    std::cout << "threads " << entriesOf("/proc/self/task", isKivoThread) << ", descriptors "
              << entriesOf("/proc/self/fd", [](const auto&) { return true; }) << std::endl;
}

const std::map<std::string, void (*)()> commands = {
    {"name", [] { kivo::platform::Bundle::setMainIdentifier("com.example.tests"); }},
    {"init", [] { KivoSDK::initialise({.apiKey = "key"}); }},
    {"init-production", [] { KivoSDK::initialise({.apiKey = "key", .isProduction = true}); }},
    {"user", [] { KivoSDK::instance()->setUser("40", "711", "ana@example.com", "Ana"); }},
    {"token", [] { KivoSDK::instance()->updateDeviceToken("t"); }},
    {"everything", everyOperation},
    {"fork", inAForkedChild},
    {"await", await},
    {"figures", printFigures},
    {"exit", [] { std::exit(0); }},
    {"quick-exit", [] { std::quick_exit(0); }},
    {"exit-elsewhere", [] { std::thread([] { std::exit(0); }).join(); }},
};

}  // namespace

/// Asked by the leak check at exit, which waits for threads that a forked child does not have.
extern "C" int __lsan_is_turned_off() { return inChild; }

/// Each argument is a command, or "N:command" to repeat it.
int main(int count, char** arguments) {
    for (int i = 1; i < count; ++i) {
        const std::string argument = arguments[i];
        const auto colon = argument.find(':');
        const int times = colon == std::string::npos ? 1 : std::stoi(argument);
        const auto& command =
            commands.at(argument.substr(colon == std::string::npos ? 0 : colon + 1));
        for (int turn = 0; turn < times; ++turn) command();
    }
}
