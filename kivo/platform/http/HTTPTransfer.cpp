#include "kivo/platform/http/HTTPTransfer.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <array>
#include <chrono>
#include <new>
#include <utility>

#include "kivo/platform/http/CurlError.h"
#include "kivo/platform/http/TrustStore.h"
#include "kivo/platform/system/Environment.h"

namespace kivo::platform {

namespace {

constexpr long connectTimeoutMilliseconds = 10'000;
constexpr int unacknowledgedTimeoutMilliseconds = 20'000;

/// A socket that closes on exec and gives up on a peer that no longer acknowledges.
curl_socket_t openSocket(void* /*context*/, curlsocktype /*purpose*/, curl_sockaddr* address) {
    const int opened = socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
    if (opened < 0) return CURL_SOCKET_BAD;
    setsockopt(opened, IPPROTO_TCP, TCP_USER_TIMEOUT, &unacknowledgedTimeoutMilliseconds,
               sizeof unacknowledgedTimeoutMilliseconds);
    return opened;
}

/// libcurl shares a TLS connection only between transfers with the same TLS options. These three
/// have no effect with OpenSSL, so their combinations distinguish eight generations of connections.
long sharingMark(unsigned generation) {
    constexpr std::array<long, 3> inert = {CURLSSLOPT_NO_REVOKE, CURLSSLOPT_REVOKE_BEST_EFFORT,
                                           CURLSSLOPT_AUTO_CLIENT_CERT};
    long mark = 0;
    for (unsigned bit = 0; bit < inert.size(); ++bit)
        if ((generation >> bit & 1U) != 0) mark |= inert[bit];
    return mark;
}

/// libcurl drops a header without a value unless it is written in a special form.
bool isBlank(const std::string& value) {
    return value.find_first_not_of(" \t\v\f") == std::string::npos;
}

/// The program's name, which its caller can choose freely.
std::string userAgent() {
    const std::string& name = Environment::current().programName;
    return isHTTPToken(name) ? name : "unnamed";
}

long idleSeconds(const URLRequest& request) {
    return static_cast<long>(
        std::chrono::ceil<std::chrono::seconds>(request.timeoutInterval()).count());
}

/// libcurl copies texts. One that it cannot copy is no longer set at all.
template <typename Value>
void set(CURL* easy, CURLoption option, Value value) {
    if (curl_easy_setopt(easy, option, value) == CURLE_OUT_OF_MEMORY) throw std::bad_alloc();
}

void configureTrust(CURL* easy) {
    const TrustStore& trust = TrustStore::current();
    if (trust.file) set(easy, CURLOPT_CAINFO, trust.file->c_str());
    if (trust.directory) set(easy, CURLOPT_CAPATH, trust.directory->c_str());
    if (trust.directoryAlone) set(easy, CURLOPT_CAINFO, nullptr);
}

}  // namespace

HTTPTransfer::HTTPTransfer(URLRequest request, Completion completion)
    : request_(std::move(request)),
      host_(request_.url().host() + ':' + std::to_string(request_.url().effectivePort())),
      completion_(std::move(completion)) {}

void HTTPTransfer::prepare(CURL* easy) {
    set(easy, CURLOPT_PROTOCOLS_STR, "http,https");
    set(easy, CURLOPT_PATH_AS_IS, 1L);
    set(easy, CURLOPT_USERAGENT, userAgent().c_str());
    set(easy, CURLOPT_NOSIGNAL, 1L);
    // A silent name server would hold up every transfer.
    set(easy, CURLOPT_QUICK_EXIT, 1L);
    set(easy, CURLOPT_OPENSOCKETFUNCTION, openSocket);
    set(easy, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_2TLS));
    set(easy, CURLOPT_CONNECTTIMEOUT_MS, connectTimeoutMilliseconds);
    set(easy, CURLOPT_LOW_SPEED_LIMIT, 1L);
    configureTrust(easy);
    // Always set, like the proxy itself: libcurl would ask the environment otherwise.
    set(easy, CURLOPT_NOPROXY, Environment::current().noProxy.c_str());

    using Writer = std::size_t (*)(char*, std::size_t, std::size_t, void*);
    const Writer write = [](char* bytes, std::size_t, std::size_t count, void* transfer) {
        return static_cast<HTTPTransfer*>(transfer)->receive(bytes, count) ? count : 0;
    };
    set(easy, CURLOPT_WRITEFUNCTION, write);
    const curl_prereq_callback connected = [](void* transfer, char*, char*, int, int) {
        static_cast<HTTPTransfer*>(transfer)->isConnected_ = true;
        return CURL_PREREQFUNC_OK;
    };
    set(easy, CURLOPT_PREREQFUNCTION, connected);
}

void HTTPTransfer::configure(CURL* easy, unsigned generation) {
    generation_ = generation;
    set(easy, CURLOPT_URL, request_.url().absoluteString().c_str());
    configureMethod(easy);
    configureHeaders(easy);
    const std::string& proxy = Environment::current().proxyFor(request_.url().scheme());
    set(easy, CURLOPT_PROXY, proxy.c_str());
    set(easy, CURLOPT_SSL_OPTIONS, sharingMark(generation));
    set(easy, CURLOPT_LOW_SPEED_TIME, idleSeconds(request_));
    set(easy, CURLOPT_WRITEDATA, this);
    set(easy, CURLOPT_PREREQDATA, this);
}

void HTTPTransfer::configureMethod(CURL* easy) const {
    const std::string& method = request_.httpMethod();
    const auto& body = request_.httpBody();
    set(easy, CURLOPT_HTTPGET, 1L);  // Forgets the method of an earlier exchange.
    if (method == "HEAD") {
        set(easy, CURLOPT_NOBODY, 1L);
    } else if (body || method == "POST" || method == "PUT") {
        set(easy, CURLOPT_POST, 1L);
        set(easy, CURLOPT_POSTFIELDS, body ? body->data() : "");
        set(easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body ? body->size() : 0));
    }
    set(easy, CURLOPT_CUSTOMREQUEST, method.c_str());
}

void HTTPTransfer::configureHeaders(CURL* easy) {
    for (const auto& [name, value] : request_.headerFields())
        isBlank(value) ? headers_.add({name, ";"}) : headers_.add({name, ": ", value});
    headers_.add({"Expect:"});
    if (!request_.value("Content-Type")) headers_.add({"Content-Type:"});
    set(easy, CURLOPT_HTTPHEADER, headers_.list());
}

bool HTTPTransfer::receive(const char* bytes, std::size_t count) {
    if (request_.discardsReplyBody()) return true;
    bodyIsTooLarge_ = count > maximumBodySize - body_.size();
    if (bodyIsTooLarge_) return false;
    try {
        body_.append(bytes, count);
        return true;
    } catch (const std::bad_alloc&) {  // Must not unwind through libcurl.
        return false;
    }
}

const std::exception_ptr& HTTPTransfer::lackOfMemory() {
    static const auto& error =
        *new std::exception_ptr(std::make_exception_ptr(urlError(CURLE_OUT_OF_MEMORY)));
    return error;
}

void HTTPTransfer::conclude(CURL* easy, CURLcode code) try {
    headers_ = HeaderLines();
    if (code != CURLE_OK) {
        const auto error =
            bodyIsTooLarge_ ? URLError(URLError::dataLengthExceedsMaximum) : urlError(code);
        outcome_ = std::make_exception_ptr(error);
        return;
    }
    long status = 0;
    long version = CURL_HTTP_VERSION_NONE;
    const char* location = nullptr;
    curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
    curl_easy_getinfo(easy, CURLINFO_HTTP_VERSION, &version);
    curl_easy_getinfo(easy, CURLINFO_REDIRECT_URL, &location);
    isMultiplexed_ = version == CURL_HTTP_VERSION_2_0;
    outcome_ = HTTPReply{.statusCode = static_cast<int>(status),
                         .body = std::move(body_),
                         .location = location != nullptr ? location : ""};
} catch (const std::bad_alloc&) {
    outcome_ = lackOfMemory();
}

void HTTPTransfer::complete() { std::exchange(completion_, nullptr)(std::move(outcome_)); }

}  // namespace kivo::platform
