#include "kivo/platform/Process.h"

#include <curl/curl.h>
#include <dlfcn.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>

#include "kivo/platform/Environment.h"
#include "kivo/platform/NetworkThread.h"
#include "kivo/platform/TaskPool.h"

namespace kivo::platform::Process {

namespace {

std::atomic<pid_t> owner{0};
std::atomic<bool> ending{false};

/// Stops the threads at a safe point and frees nothing: they may outlive this call, and the
/// libraries' own exit handlers, which run after it, must find no transfer at work.
void endProcess() {
    if (!isOwn()) return;
    ending = true;
    const auto deadline = std::chrono::steady_clock::now() + exitPatience;
    NetworkThread::stopAll(deadline);
    TaskPool::stopAll(deadline);
}

/// A transfer may still be at work when the exit hook gives up waiting for it, in the midst of a
/// handshake say; OpenSSL must not be torn down under it. Has no effect where the host has started
/// OpenSSL before.
void keepOpenSSLToTheEnd() {
    using Initialise = int (*)(std::uint64_t options, const void* settings);
    constexpr std::uint64_t withoutExitHandler = 0x00080000;  // OPENSSL_INIT_NO_ATEXIT
    if (auto* symbol = dlsym(RTLD_DEFAULT, "OPENSSL_init_crypto"))
        reinterpret_cast<Initialise>(symbol)(withoutExitHandler, nullptr);
}

/// A host that closes the plug-in which brought us would otherwise unmap the code our threads run.
void pinLibrary() {
    Dl_info ours{};
    if (dladdr(reinterpret_cast<void*>(&pinLibrary), &ours) != 0 && ours.dli_fname != nullptr)
        dlopen(ours.dli_fname, RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE);
}

bool prepareOnce() {
    owner = getpid();
    Environment::current();
    keepOpenSSLToTheEnd();
    curl_global_init(CURL_GLOBAL_DEFAULT);
    std::atexit(
        endProcess);  // After libcurl's start: the hook runs before OpenSSL's own exit handler.
    pinLibrary();
    return true;
}

}  // namespace

bool isOwn() noexcept {
    const pid_t process = owner.load(std::memory_order_acquire);
    return process == 0 || process == getpid();
}

bool isUsable() noexcept { return !ending.load(std::memory_order_acquire) && isOwn(); }

void prepare() { [[maybe_unused]] static const bool prepared = prepareOnce(); }

}  // namespace kivo::platform::Process
