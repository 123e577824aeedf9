#pragma once

#include <curl/curl.h>

#include <memory>

#include "kivo/platform/http/EasyHandles.h"
#include "kivo/platform/http/HTTPTransfer.h"
#include "kivo/platform/http/Transfers.h"
#include "kivo/platform/tasks/Loop.h"

namespace kivo::platform {

/// What moves bytes: transfers as libcurl's easy handles in the loop's multi handle. For the loop
/// alone, but for `cutOff`.
class Network final : public Loop::Wire {
public:
    /// Never destroyed. Made on the loop.
    static Network& shared();

    /// Begins `transfer` when its turn comes. Never fails: without memory that is its outcome.
    void start(const std::shared_ptr<HTTPTransfer>& transfer) noexcept;

    /// Ends `transfer` without an outcome if it is still going on. Its connection is not used
    /// again.
    void cancel(HTTPTransfer& transfer) noexcept;

    /// Says that `transfer` has a connection, for others to share.
    void connected(const HTTPTransfer& transfer) noexcept { transfers_.connected(transfer); }

    void perform() override;
    void cutOff() noexcept override;

private:
    explicit Network(Loop& loop);

    void beginDue() noexcept;
    bool begin(HTTPTransfer& transfer) noexcept;
    void collectEnded();
    void conclude(HTTPTransfer& transfer, CURLcode code) noexcept;

    Loop& loop_;
    CURLM* const multi_;
    EasyHandles handles_;
    Transfers transfers_;
};

}  // namespace kivo::platform
