#include "kivo/platform/http/Network.h"

#include <new>
#include <utility>

#include "kivo/platform/base/Error.h"
#include "kivo/platform/http/Sockets.h"

namespace kivo::platform {

Network::Network(Loop& loop) : loop_(loop), multi_(loop.multi()) {
    HTTPTransfer::outOfMemory();
    Sockets::shared();
    // libcurl's own limit follows the number of running transfers and closes connections that the
    // next ones need.
    constexpr long keptConnections = 16;
    curl_multi_setopt(multi_, CURLMOPT_MAXCONNECTS, keptConnections);
    loop.attach(*this);
}

Network& Network::shared() {
    static Network& network = *new Network(Loop::shared());
    return network;
}

void Network::start(const std::shared_ptr<HTTPTransfer>& transfer) noexcept {
    transfer->kept = transfer;
    try {
        transfers_.add(*transfer);
    } catch (const std::bad_alloc&) {
        transfer->conclude(HTTPTransfer::outOfMemory());
        return loop_.submit(transfer->completing.of(std::move(transfer->kept)));
    }
    beginDue();
}

void Network::beginDue() noexcept {
    while (auto* entry = transfers_.next()) beginOrRetire(static_cast<HTTPTransfer&>(*entry));
}

void Network::beginOrRetire(HTTPTransfer& transfer) noexcept {
    try {
        begin(transfer);
    } catch (const std::bad_alloc&) {
        retire(transfer, transfer.conclude(HTTPTransfer::outOfMemory()));
    } catch (...) {
        retire(transfer, transfer.conclude(currentError()));
    }
}

void Network::begin(HTTPTransfer& transfer) {
    transfer.easy = handles_.take();
    transfer.configure();
    constexpr long keptSeconds = 60;
    const bool isStale = transfers_.takeStaleAddress(transfer);
    curl_easy_setopt(transfer.easy, CURLOPT_DNS_CACHE_TIMEOUT, isStale ? 0L : keptSeconds);
    if (curl_multi_add_handle(multi_, transfer.easy) != CURLM_OK) throw std::bad_alloc();
    ++running_;
    loop_.wireHasWork();
}

void Network::perform() {
    int unended = 0;
    curl_multi_perform(multi_, &unended);
    collectEnded();
    beginDue();
}

void Network::collectEnded() {
    int left = 0;
    while (const CURLMsg* message = curl_multi_info_read(multi_, &left)) {
        CURL* easy = message->easy_handle;
        const CURLcode code = message->data.result;
        curl_multi_remove_handle(multi_, easy);
        --running_;
        void* transfer = nullptr;
        curl_easy_getinfo(easy, CURLINFO_PRIVATE, &transfer);
        auto& ended = *static_cast<HTTPTransfer*>(transfer);
        if (ended.mayBeginAgain(code)) {
            beginAgain(ended);
        } else {
            if (ended.isLarge()) loop_.oweMemory();
            retire(ended, ended.conclude(code));
        }
    }
}

void Network::beginAgain(HTTPTransfer& transfer) noexcept {
    handles_.giveBack(std::exchange(transfer.easy, nullptr), false);
    beginOrRetire(transfer);
}

void Network::retire(HTTPTransfer& transfer, const Transfers::Ending& ending) noexcept {
    handles_.giveBack(std::exchange(transfer.easy, nullptr), transfer.handleIsFit());
    transfers_.ended(transfer, ending);
    loop_.submit(transfer.completing.of(std::move(transfer.kept)));
}

void Network::cancel(HTTPTransfer& transfer) noexcept {
    const auto self = std::move(transfer.kept);
    if (!self || transfers_.withdraw(transfer)) return;
    CURL* easy = std::exchange(transfer.easy, nullptr);
    curl_easy_setopt(easy, CURLOPT_FORBID_REUSE, 1L);
    curl_multi_remove_handle(multi_, easy);
    --running_;
    curl_easy_cleanup(easy);
    transfers_.ended(transfer, {.connectionIsSuspect = true});
    beginDue();
}

void Network::cutOff() noexcept { Sockets::shared().shutDownBusiest(); }

}  // namespace kivo::platform
