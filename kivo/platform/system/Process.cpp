#include "kivo/platform/system/Process.h"

#include <curl/curl.h>
#include <dlfcn.h>
#include <sys/auxv.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <utility>

#include "kivo/platform/base/Error.h"
#include "kivo/platform/system/Environment.h"
#include "kivo/platform/system/Output.h"

namespace kivo::platform::Process {

namespace {

std::atomic<pid_t> owner{0};
std::atomic<const char*> mark{nullptr};
std::atomic<bool> ending{false};
std::atomic<Stoppable*> registeredLast{nullptr};

/// A byte that is 1 in this process and 0 in a forked child, where the kernel wipes its page. Every
/// entry point checks whose process it is in, and this needs no system call. Null if the kernel
/// does not support it.
const char* makeMark() noexcept {
    const auto size = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    void* page = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (page == MAP_FAILED || madvise(page, size, MADV_WIPEONFORK) != 0) return nullptr;
    *static_cast<char*>(page) = 1;
    return static_cast<const char*>(page);
}

/// The exit hook. The threads may outlive it, and the libraries' own exit handlers, which run
/// later, must not find a transfer running.
void endProcess() {
    if (!isOwn()) return;
    ending = true;
    Stoppable::stopAll(std::chrono::steady_clock::now() + exitPatience);
}

template <typename Function>
Function* symbol(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_DEFAULT, name));
}

/// A transfer may still be running when the exit hook gives up waiting for it, for example during a
/// handshake; OpenSSL must not be torn down under it. Has no effect if the host has already
/// initialised OpenSSL.
void keepOpenSSLToTheEnd() {
    constexpr std::uint64_t withoutExitHandler = 0x00080000;  // OPENSSL_INIT_NO_ATEXIT
    if (auto* initialise = symbol<int(std::uint64_t, const void*)>("OPENSSL_init_crypto"))
        initialise(withoutExitHandler, nullptr);
}

/// If OpenSSL ran out of memory during its initialisation, its next use would crash.
void requireOpenSSL() {
    auto* context = symbol<void*()>("OSSL_LIB_CTX_get0_global_default");
    if (context != nullptr && context() == nullptr) throw std::bad_alloc();
}

/// A host that unloads the plug-in that linked Kivo would otherwise unmap code that runs on Kivo's
/// threads.
void pinLibrary() {
    Dl_info ours{};
    if (dladdr(reinterpret_cast<void*>(&pinLibrary), &ours) != 0 && ours.dli_fname != nullptr)
        dlopen(ours.dli_fname, RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE);
}

/// While it lives, libcurl does not find SSLKEYLOGFILE, which it would otherwise honour even in a
/// process that must not trust its caller's environment, such as a set-user-id one.
class HiddenKeyLog {
public:
    HiddenKeyLog() {
        if (name_ != nullptr) first_ = std::exchange(*name_, '\0');
    }
    ~HiddenKeyLog() {
        if (name_ != nullptr) *name_ = first_;
    }
    HiddenKeyLog(const HiddenKeyLog&) = delete;
    HiddenKeyLog& operator=(const HiddenKeyLog&) = delete;

private:
    char* const name_ = getauxval(AT_SECURE) != 0 ? std::getenv("SSLKEYLOGFILE") : nullptr;
    char first_ = '\0';
};

void initialiseLibcurl() {
    const HiddenKeyLog hidden;
    if (curl_global_init(CURL_GLOBAL_DEFAULT) != CURLE_OK) throw std::bad_alloc();
}

bool prepareOnce() {
    lackOfMemory();
    Environment::current();
    Output::shared();
    keepOpenSSLToTheEnd();
    requireOpenSSL();
    initialiseLibcurl();
    // After libcurl's initialisation, so that the hook runs before OpenSSL's own exit handler.
    std::atexit(endProcess);
    pinLibrary();
    return true;
}

}  // namespace

void Stoppable::stopAtExit() noexcept {
    registeredBefore_ = registeredLast.load(std::memory_order_relaxed);
    while (!registeredLast.compare_exchange_weak(registeredBefore_, this, std::memory_order_release,
                                                 std::memory_order_relaxed)) {
    }
}

void Stoppable::stopAll(Deadline deadline) noexcept {
    for (auto* next = registeredLast.load(std::memory_order_acquire); next != nullptr;
         next = next->registeredBefore_)
        next->stop(deadline);
}

bool isOwn() noexcept {
    if (const char* own = mark.load(std::memory_order_acquire)) return *own != 0;
    const pid_t process = owner.load(std::memory_order_acquire);
    return process == 0 || process == getpid();
}

bool isUsable() noexcept { return !ending.load(std::memory_order_acquire) && isOwn(); }

bool claim() noexcept {
    pid_t nobody = 0;
    if (owner.load(std::memory_order_relaxed) == 0 &&
        owner.compare_exchange_strong(nobody, getpid()))
        mark = makeMark();
    return isOwn();
}

/// Claimed before the guard of the static is touched: a child that is forked while another thread
/// holds that guard would wait for it forever.
void prepare() {
    if (!claim()) return;
    [[maybe_unused]] static const bool prepared = prepareOnce();
}

}  // namespace kivo::platform::Process
