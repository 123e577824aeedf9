#pragma once

#include <memory>
#include <utility>

#include "kivo/platform/HTTPTransfer.h"

namespace kivo::platform {

/// Transfers that have ended, first in, first out. They are chained through themselves, so that
/// adding one never needs memory.
class TransferChain {
public:
    bool isEmpty() const { return first_ == nullptr; }
    const std::shared_ptr<HTTPTransfer>& first() const { return first_; }

    void add(std::shared_ptr<HTTPTransfer> transfer) {
        auto& place = first_ ? last_->next : first_;
        last_ = transfer.get();
        place = std::move(transfer);
    }

    void removeFirst() { first_ = std::exchange(first_->next, nullptr); }

private:
    std::shared_ptr<HTTPTransfer> first_;
    HTTPTransfer* last_ = nullptr;
};

}  // namespace kivo::platform
