#pragma once

#include <curl/curl.h>

#include <memory>

#include "kivo/platform/http/EasyHandles.h"
#include "kivo/platform/http/HTTPTransfer.h"
#include "kivo/platform/http/Transfers.h"
#include "kivo/platform/tasks/Loop.h"

namespace kivo::platform {

/// The network: runs transfers as libcurl's easy handles in the loop's multi handle. Only for the
/// loop, except `cutOff`.
class Network final : public Loop::Wire {
public:
    /// Created on the loop; never destroyed.
    static Network& shared();

    /// Starts `transfer` when its turn comes. If memory runs out, that is its outcome.
    void start(const std::shared_ptr<HTTPTransfer>& transfer) noexcept;

    /// Ends `transfer` without an outcome if it has not ended. Its connection is not reused.
    void cancel(HTTPTransfer& transfer) noexcept;

    /// Notes that `transfer` has a connection, which others may share.
    void connected(const HTTPTransfer& transfer) noexcept { transfers_.connected(transfer); }

    void perform() override;
    bool isActive() const noexcept override { return running_ > 0; }
    void cutOff() noexcept override;

private:
    explicit Network(Loop& loop);

    void beginDue() noexcept;
    void begin(HTTPTransfer& transfer);
    void beginOrRetire(HTTPTransfer& transfer) noexcept;
    void beginAgain(HTTPTransfer& transfer) noexcept;
    void collectEnded();
    void retire(HTTPTransfer& transfer, const Transfers::Ending& ending) noexcept;

    Loop& loop_;
    CURLM* const multi_;
    EasyHandles handles_;
    Transfers transfers_;
    int running_ = 0;  // In the multi handle.
};

}  // namespace kivo::platform
