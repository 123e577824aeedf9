// A host application for the tests. Each argument is a command, and they are carried out in order;
// a number before one repeats it: kivo-test-host name init user 20:token await exit

#include <dlfcn.h>
#include <pthread.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <locale>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "kivo/api/CoreRepository.h"
#include "kivo/core/KivoCore.h"
#include "kivo/platform/Bundle.h"
#include "kivo/platform/Console.h"
#include "kivo/sdk/KivoSDK.h"

namespace {

using kivo::KivoSDK;

using Clock = std::chrono::steady_clock;
using Microseconds = std::chrono::duration<long, std::micro>;

long microsecondsSince(Clock::time_point start) {
    return std::chrono::duration_cast<Microseconds>(Clock::now() - start).count();
}

/// One whole line, whatever other threads print.
void say(const std::string& line) {
    std::fputs((line + '\n').c_str(), stdout);
    std::fflush(stdout);
}

/// As initialise() gave it, which is all that a host may rely on where memory is short.
std::shared_ptr<kivo::KivoCommunicationPlugin> made;

kivo::RemoteMessage messageWithImage(const std::string& address) {
    return {{"notification", {{"image", address}}}};
}

const auto imageMessage = messageWithImage("https://localhost/a.png");

/// Allocates nothing of its own but what it hands over, so that a lack of memory hits Kivo alone.
void everyOperation() {
    const auto plugin = KivoSDK::initialise({.apiKey = "key"});
    plugin->setUser("40", "711", "ana@example.com", "Ana");
    plugin->updateDeviceToken("t");
    plugin->setNotificationPermission(true);
    plugin->onMessageReceived(imageMessage);
    plugin->onMessageReceived({});
    plugin->unsetUser();
}

void await() {
    if (!KivoSDK::waitUntilIdle(std::chrono::seconds(60))) say("not idle");
}

/// A host's own coroutine, which nobody awaits.
struct Unawaited {
    struct promise_type {
        Unawaited get_return_object() { return {}; }
        std::suspend_never initial_suspend() { return {}; }
        std::suspend_never final_suspend() noexcept { return {}; }
        void return_void() {}
        void unhandled_exception() { std::abort(); }
    };
};

/// Asks the repository directly, on the host's thread, as soon as there is a core.
Unawaited askAsProduction() {
    const kivo::KivoCore core({"key", /*isProduction*/ true});
    kivo::CoreRepository repository;
    const kivo::SdkAuthRequest request{.apiKey = "key"};
    co_await repository.authenticateSdk(request);
}

/// Each time at another host, one that shares the end of its name.
void askForAnImageElsewhere() {
    static int number = 0;
    const auto name = "http://n" + std::to_string(++number) + "." + getenv("HOST_IMAGE");
    made->onMessageReceived(messageWithImage(name));
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
        KivoSDK::waitUntilIdle(std::chrono::seconds(60));
        std::exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    say("child ended with " + std::to_string(status));
}

/// Forks at some moment of the first call, which is made on another thread.
void forkAmidTheFirstCall() {
    std::thread first(everyOperation);
    std::this_thread::sleep_for(std::chrono::microseconds(getpid() % 16 * 50));
    inAForkedChild();
    first.join();
}

/// Threads that are cancelled before they enter: each call runs to its end, and then they go.
void cancelThreads() {
    const auto calls = [](void*) -> void* {
        pthread_cancel(pthread_self());
        everyOperation();
        await();
        return nullptr;
    };
    for (int turn = 0; turn < 50; ++turn) {
        pthread_t thread{};
        pthread_create(&thread, nullptr, calls, nullptr);
        pthread_join(thread, nullptr);
    }
}

/// For a second: every operation, getter and setter from 32 threads at once.
void storm() {
    const auto plugin = KivoSDK::initialise({.apiKey = "key"});
    const auto end = Clock::now() + std::chrono::seconds(1);
    std::vector<std::thread> threads(32);
    std::atomic<int> asked{0};
    for (auto& thread : threads)
        thread = std::thread([&] {
            while (Clock::now() < end) {
                everyOperation();
                asked += 6;
                plugin->setConfig(plugin->config());
                plugin->modifyConfig([](kivo::KivoConfig& config) { config.apiKey += "y"; });
                plugin->setConfig({.apiKey = "key"});
                kivo::platform::Console::setOutput(nullptr);
                std::this_thread::sleep_for(std::chrono::milliseconds(50));
            }
        });
    for (auto& thread : threads) thread.join();
    say("asked " + std::to_string(asked));
}

volatile std::sig_atomic_t signalsHandled = 0;

/// Handlers without SA_RESTART, so that whatever they interrupt sees EINTR; and a profiler's clock,
/// whose signal reaches every thread.
void handleSignals() {
    struct sigaction action{};
    action.sa_handler = [](int) { signalsHandled = signalsHandled + 1; };
    for (const int signal : {SIGUSR1, SIGUSR2, SIGALRM, SIGHUP, SIGCHLD, SIGWINCH, SIGPROF})
        sigaction(signal, &action, nullptr);
    const timeval period{.tv_sec = 0, .tv_usec = 500};
    const itimerval often{.it_interval = period, .it_value = period};
    setitimer(ITIMER_PROF, &often, nullptr);
}

/// Numbers written in the style of another country.
void changeLocale() {
    struct Separators : std::numpunct<char> {
        char do_decimal_point() const override { return ','; }
        char do_thousands_sep() const override { return '.'; }
        std::string do_grouping() const override { return "\1"; }
    };
    std::setlocale(LC_ALL, "tr_TR.UTF-8");
    std::locale::global(std::locale(std::locale::classic(), new Separators));
}

/// Tells the library of failures, if one is preloaded, that they may begin or must end.
void setFailures(bool mayHappen) {
    if (auto* symbol = dlsym(RTLD_DEFAULT, "setFailures"))
        reinterpret_cast<void (*)(bool)>(symbol)(mayHappen);
}

void pauseForALine() {
    say("paused");
    for (int letter = 0; letter != '\n' && letter != EOF;) letter = std::getchar();
}

std::atomic<Clock::rep> lastLine{0};

/// Copies Kivo's lines and notes when the last one came.
void timeLines() {
    kivo::platform::Console::setOutput([](std::string_view line) {
        lastLine = Clock::now().time_since_epoch().count();
        std::fprintf(stdout, "%.*s\n", static_cast<int>(line.size()), line.data());
    });
}

/// Waits until all is committed, and says how long after the last line that was.
void settle() {
    await();
    const auto since = Clock::time_point(Clock::duration(lastLine));
    say("settled " + std::to_string(microsecondsSince(since)));
}

Clock::time_point exitBegan;

/// Registered before Kivo's own exit hook, so it runs after it.
void timeExit() {
    std::atexit([] { std::fprintf(stderr, "hook %ld\n", microsecondsSince(exitBegan)); });
}

/// In a signal handler that interrupts the wait, 20 ms after its beginning.
void exitInAHandler() {
    std::signal(SIGALRM, [](int) { std::exit(0); });
    ualarm(20'000, 0);
    await();
}

bool exitsInDestructor = false;

/// A host's own farewell: after Kivo's exit hook, and before it where a command makes one.
struct Farewell {
    bool exits = false;
    ~Farewell() {
        if (exitsInDestructor) everyOperation();
        if (exitsInDestructor && exits) std::exit(0);
    }
} const lastOfAll{.exits = true};

void exitInDestructors() {
    static const Farewell early;
    exitsInDestructor = true;
}

const std::map<std::string, void (*)()> commands = {
    // What a host asks of Kivo.
    {"name", [] { kivo::platform::Bundle::setMainIdentifier("com.example.tests"); }},
    {"init", [] { made = KivoSDK::initialise({.apiKey = "key"}); }},
    {"init-production", [] { made = KivoSDK::initialise({"key", /*isProduction*/ true}); }},
    {"user", [] { made->setUser("40", "711", "ana@example.com", "Ana"); }},
    {"token", [] { made->updateDeviceToken("t"); }},
    {"image", [] { made->onMessageReceived(messageWithImage(getenv("HOST_IMAGE"))); }},
    {"image-elsewhere", askForAnImageElsewhere},
    {"ask-production", [] { askAsProduction(); }},
    {"unset", [] { made->unsetUser(); }},
    {"sink", [] { kivo::platform::Console::setOutput([](auto line) { say(std::string(line)); }); }},
    {"everything", everyOperation},
    {"storm", storm},
    // How it waits.
    {"await", await},
    {"sleep", [] { std::this_thread::sleep_for(std::chrono::milliseconds(100)); }},
    {"pause", pauseForALine},
    {"time-lines", timeLines},
    {"settle", settle},
    // What it does to its own process.
    {"cancel-threads", cancelThreads},
    {"fork", inAForkedChild},
    {"fork-early", forkAmidTheFirstCall},
    {"close-all", [] { close_range(STDERR_FILENO + 1, ~0U, 0); }},
    {"spawn", [] { say("spawned " + std::to_string(WEXITSTATUS(std::system("exit 7")))); }},
    {"signals", handleSignals},
    {"signals-handled", [] { say("handled " + std::to_string(signalsHandled)); }},
    {"locale", changeLocale},
    {"fail", [] { setFailures(true); }},
    {"heal", [] { setFailures(false); }},
    // How it ends.
    {"time-exit", timeExit},
    {"exit", [] { std::exit(0); }},
    {"quick-exit", [] { std::quick_exit(0); }},
    {"exit-elsewhere", [] { std::thread([] { std::exit(0); }).join(); }},
    {"exit-static", exitInDestructors},
    {"exit-in-handler", exitInAHandler},
    {"abort", [] { std::abort(); }},
    {"return", [] {}},
};

}  // namespace

/// Asked by the leak check at exit, which waits for threads that a forked child does not have.
extern "C" int __lsan_is_turned_off() { return inChild; }

int main(int count, char** arguments) {
    for (const std::string argument : std::vector(arguments + 1, arguments + count)) {
        const auto colon = argument.find(':');
        const bool repeats = colon != std::string::npos;
        const auto command = commands.at(repeats ? argument.substr(colon + 1) : argument);
        exitBegan = Clock::now();
        for (int left = repeats ? std::stoi(argument) : 1; left > 0; --left) command();
    }
    exitBegan = Clock::now();
}
