#include "kivo/platform/http/HTTPTransfer.h"

#include <array>
#include <chrono>
#include <new>
#include <utility>

#include "kivo/platform/http/CurlError.h"
#include "kivo/platform/http/Network.h"
#include "kivo/platform/http/Sockets.h"
#include "kivo/platform/http/TrustStore.h"
#include "kivo/platform/system/Environment.h"

namespace kivo::platform {

namespace {

constexpr long connectTimeoutMilliseconds = 10'000;

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

/// An option that libcurl refuses keeps its earlier value, so the request may not go out. An older
/// libcurl than the one built with does not know them all.
void check(CURLcode code, CURLoption option) {
    if (code == CURLE_OK) return;
    if (code == CURLE_OUT_OF_MEMORY) throw std::bad_alloc();
    throw URLError(URLError::badServerResponse, std::string("libcurl ") +
                                                    curl_version_info(CURLVERSION_NOW)->version +
                                                    " refuses option " + std::to_string(option) +
                                                    ": " + curl_easy_strerror(code));
}

template <typename Value>
void set(CURL* easy, CURLoption option, Value value) {
    check(curl_easy_setopt(easy, option, value), option);
}

/// Empty unless it is a plain token: it is printed.
std::string contentEncodingOf(CURL* easy) {
    curl_header* field = nullptr;
    if (curl_easy_header(easy, "Content-Encoding", 0, CURLH_HEADER, -1, &field) != CURLHE_OK)
        return "";
    return isHTTPToken(field->value) ? field->value : "";
}

/// TLS sessions to resume, for all handles: only the first connection to a host costs a full
/// handshake.
CURLSH* sharedSessions() {
    static CURLSH* const sessions = [] {
        CURLSH* made = curl_share_init();
        if (made == nullptr) throw std::bad_alloc();
        curl_share_setopt(made, CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
        return made;
    }();
    return sessions;
}

void configureTrust(CURL* easy) {
    const TrustStore& trust = TrustStore::current();
    if (trust.file) set(easy, CURLOPT_CAINFO, trust.file->c_str());
    if (trust.directory) set(easy, CURLOPT_CAPATH, trust.directory->c_str());
    if (trust.directoryAlone) set(easy, CURLOPT_CAINFO, nullptr);
}

}  // namespace

HTTPTransfer::HTTPTransfer(URLRequest request, Completion completion)
    : Entry(request.url().host() + ':' + std::to_string(request.url().effectivePort()),
            request.discardsReplyBody()),
      request_(std::move(request)),
      completion_(std::move(completion)) {}

void HTTPTransfer::prepare(CURL* handle) {
    set(handle, CURLOPT_PROTOCOLS_STR, "http,https");
    set(handle, CURLOPT_PATH_AS_IS, 1L);
    set(handle, CURLOPT_USERAGENT, userAgent().c_str());
    set(handle, CURLOPT_NOSIGNAL, 1L);
    // A silent name server would hold up every transfer.
    set(handle, CURLOPT_QUICK_EXIT, 1L);
    Sockets::shared().serve(handle);
    // Refused by a libcurl without HTTP/2, which does well with HTTP/1.1.
    curl_easy_setopt(handle, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_2TLS));
    set(handle, CURLOPT_CONNECTTIMEOUT_MS, connectTimeoutMilliseconds);
    set(handle, CURLOPT_LOW_SPEED_LIMIT, 1L);
    set(handle, CURLOPT_SHARE, sharedSessions());
    configureTrust(handle);
    // Always set, like the proxy itself: libcurl would ask the environment otherwise.
    set(handle, CURLOPT_NOPROXY, Environment::current().noProxy.c_str());

    using Writer = std::size_t (*)(char*, std::size_t, std::size_t, void*);
    const Writer write = [](char* bytes, std::size_t, std::size_t count, void* transfer) {
        return static_cast<HTTPTransfer*>(transfer)->receive(bytes, count) ? count : 0;
    };
    set(handle, CURLOPT_WRITEFUNCTION, write);
    const Writer writeHeader = [](char* line, std::size_t, std::size_t count, void* transfer) {
        return static_cast<HTTPTransfer*>(transfer)->receiveHeader({line, count}) ? count : 0;
    };
    set(handle, CURLOPT_HEADERFUNCTION, writeHeader);
    set(handle, CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
    const curl_prereq_callback connected = [](void* transfer, char*, char*, int, int) {
        auto& self = *static_cast<HTTPTransfer*>(transfer);
        ++self.connections_;
        Network::shared().connected(self);
        return CURL_PREREQFUNC_OK;
    };
    set(handle, CURLOPT_PREREQFUNCTION, connected);
}

void HTTPTransfer::configure() {
    if (++attempts_ > 1) set(easy, CURLOPT_FRESH_CONNECT, 1L);
    set(easy, CURLOPT_URL, request_.url().absoluteString().c_str());
    configureMethod();
    configureHeaders();
    const std::string& proxy = Environment::current().proxyFor(request_.url().scheme());
    set(easy, CURLOPT_PROXY, proxy.c_str());
    set(easy, CURLOPT_SSL_OPTIONS, sharingMark(generation()));
    set(easy, CURLOPT_LOW_SPEED_TIME, idleSeconds(request_));
    set(easy, CURLOPT_WRITEDATA, this);
    set(easy, CURLOPT_HEADERDATA, this);
    set(easy, CURLOPT_PRIVATE, this);
    set(easy, CURLOPT_PREREQDATA, this);
}

void HTTPTransfer::configureMethod() const {
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

void HTTPTransfer::configureHeaders() {
    headers_ = HeaderLines();
    for (const auto& [name, value] : request_.headerFields())
        isBlank(value) ? headers_.add({name, ";"}) : headers_.add({name, ": ", value});
    headers_.add({"Expect:"});
    if (!request_.value("Content-Type")) headers_.add({"Content-Type:"});
    set(easy, CURLOPT_HTTPHEADER, headers_.list());
}

/// Takes a line of a head or of the trailer; returns whether the transfer may go on. libcurl keeps
/// them all, and takes the end of the connection for the end of a head.
bool HTTPTransfer::receiveHeader(std::string_view line) {
    constexpr std::size_t maximumHeaderSize = 1U << 20U;
    constexpr std::size_t lineOverhead = 128;
    if (line.starts_with("HTTP/")) headIsWhole_ = false;
    if (line == "\r\n" || line == "\n") headIsWhole_ = true;
    headerSize_ += line.size() + lineOverhead;
    isTooLarge_ = headerSize_ > maximumHeaderSize;
    return !isTooLarge_;
}

bool HTTPTransfer::receive(const char* bytes, std::size_t count) {
    if (request_.discardsReplyBody()) return true;
    isTooLarge_ = count > maximumBodySize - body_.size();
    if (isTooLarge_) return false;
    try {
        body_.append(bytes, count);
        return true;
    } catch (const std::bad_alloc&) {  // Must not unwind through libcurl.
        return false;
    }
}

bool HTTPTransfer::mayBeginAgain(CURLcode code) const {
    const bool isMissed = code == CURLE_FAILED_INIT || code == CURLE_HTTP2;
    if (!isMissed || attempts_ > 1 || headerSize_ > 0) return false;
    long connectionsMade = 0;
    curl_easy_getinfo(easy, CURLINFO_NUM_CONNECTS, &connectionsMade);
    return connectionsMade == 0;
}

const std::exception_ptr& HTTPTransfer::outOfMemory() {
    static const auto& error =
        *new std::exception_ptr(std::make_exception_ptr(urlError(CURLE_OUT_OF_MEMORY)));
    return error;
}

std::exception_ptr HTTPTransfer::errorFor(CURLcode code) const {
    if (code == CURLE_OUT_OF_MEMORY) return outOfMemory();
    return makeError(isTooLarge_ ? URLError(URLError::dataLengthExceedsMaximum) : urlError(code));
}

Transfers::Ending HTTPTransfer::conclude(CURLcode code) try {
    headers_ = HeaderLines();
    if (code == CURLE_OK && !headIsWhole_) code = CURLE_GOT_NOTHING;
    if (code != CURLE_OK) {
        outcome_ = errorFor(code);
        const bool isTimedOut = code == CURLE_OPERATION_TIMEDOUT;
        return {
            .connectionIsSuspect = isTimedOut,
            .hasNotConnected = code == CURLE_COULDNT_CONNECT || (isTimedOut && connections_ == 0)};
    }
    long status = 0;
    long version = CURL_HTTP_VERSION_NONE;
    const char* location = nullptr;
    curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
    curl_easy_getinfo(easy, CURLINFO_HTTP_VERSION, &version);
    curl_easy_getinfo(easy, CURLINFO_REDIRECT_URL, &location);
    outcome_ = HTTPReply{.statusCode = static_cast<int>(status),
                         .body = std::move(body_),
                         .location = location != nullptr ? location : "",
                         .contentEncoding = contentEncodingOf(easy)};
    using Speech = HostNotes::Speech;
    return {.speech = version == CURL_HTTP_VERSION_2_0 ? Speech::multiplexed : Speech::separate};
} catch (const std::bad_alloc&) {
    outcome_ = outOfMemory();
    return {};
}

bool HTTPTransfer::isLarge() const {
    constexpr std::size_t large = 1U << 20U;
    const auto& sent = request_.httpBody();
    return body_.size() + (sent ? sent->size() : 0) > large;
}

Transfers::Ending HTTPTransfer::conclude(std::exception_ptr error) {
    headers_ = HeaderLines();
    outcome_ = std::move(error);
    return {};
}

void HTTPTransfer::complete() { std::exchange(completion_, nullptr)(std::move(outcome_)); }

}  // namespace kivo::platform
