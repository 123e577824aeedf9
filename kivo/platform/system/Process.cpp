#include "kivo/platform/system/Process.h"

#include <curl/curl.h>
#include <dlfcn.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <new>

#include "kivo/platform/system/Environment.h"

namespace kivo::platform::Process {

namespace {

std::atomic<pid_t> owner{0};
std::atomic<const char*> mark{nullptr};
std::atomic<bool> ending{false};
std::atomic<Stoppable*> registeredLast{nullptr};

/// A byte that is 1 in this process and 0 in a forked child, where the kernel empties its page:
/// every entry asks whose process it is, and this answers without a system call. Null where the
/// kernel cannot do that.
const char* makeMark() {
    const auto size = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    void* page = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (page == MAP_FAILED || madvise(page, size, MADV_WIPEONFORK) != 0) return nullptr;
    *static_cast<char*>(page) = 1;
    return static_cast<const char*>(page);
}

/// The exit hook. The threads may outlive it, and the libraries' own exit handlers, which run after
/// it, must find no transfer at work.
void endProcess() {
    if (!isOwn()) return;
    ending = true;
    Stoppable::stopAll(std::chrono::steady_clock::now() + exitPatience);
}

template <typename Function>
Function* symbol(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_DEFAULT, name));
}

/// A transfer may still be at work when the exit hook gives up waiting for it, in the midst of a
/// handshake say; OpenSSL must not be torn down under it. Has no effect where the host has started
/// OpenSSL before.
void keepOpenSSLToTheEnd() {
    constexpr std::uint64_t withoutExitHandler = 0x00080000;  // OPENSSL_INIT_NO_ATEXIT
    if (auto* initialise = symbol<int(std::uint64_t, const void*)>("OPENSSL_init_crypto"))
        initialise(withoutExitHandler, nullptr);
}

/// An OpenSSL that could not have the memory for its beginnings crashes whoever uses it later.
void requireOpenSSL() {
    auto* context = symbol<void*()>("OSSL_LIB_CTX_get0_global_default");
    if (context != nullptr && context() == nullptr) throw std::bad_alloc();
}

/// A host that closes the plug-in which brought us would otherwise unmap the code our threads run.
void pinLibrary() {
    Dl_info ours{};
    if (dladdr(reinterpret_cast<void*>(&pinLibrary), &ours) != 0 && ours.dli_fname != nullptr)
        dlopen(ours.dli_fname, RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE);
}

bool prepareOnce() {
    owner = getpid();
    mark = makeMark();
    Environment::current();
    keepOpenSSLToTheEnd();
    requireOpenSSL();
    if (curl_global_init(CURL_GLOBAL_DEFAULT) != CURLE_OK) throw std::bad_alloc();
    // After libcurl's start: the hook runs before OpenSSL's own exit handler.
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

void prepare() { [[maybe_unused]] static const bool prepared = prepareOnce(); }

}  // namespace kivo::platform::Process
