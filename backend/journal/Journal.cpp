#include "backend/journal/Journal.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace kivo::backend {

namespace {

void cut(std::string& body, std::size_t limit) {
    if (body.size() <= limit) return;
    const auto whole = body.size();
    body.resize(limit);
    body.shrink_to_fit();
    body += "… (" + std::to_string(whole) + " bytes in all)";
}

std::size_t sizeOf(const std::vector<Header>& headers) {
    std::size_t size = headers.size() * sizeof(Header);
    for (const auto& header : headers) size += header.name.size() + header.value.size();
    return size;
}

std::size_t sizeOf(const Entry& entry) {
    const auto& [request, reply, duration, delivered] = entry.exchange;
    return request.target.size() + request.body.size() + reply.body.size() +
           sizeOf(request.headers) + sizeOf(reply.headers) + entry.detail.size();
}

}  // namespace

Entry eventOf(EntryKind kind, std::string detail) {
    Entry entry{.kind = kind, .detail = std::move(detail)};
    entry.exchange.request.arrival = std::chrono::system_clock::now();
    return entry;
}

void Journal::observe(Observer observer) {
    const Lock lock(mutex_);
    observers_.push_back(std::move(observer));
}

void Journal::record(Entry entry) {
    cut(entry.exchange.request.body, limits_.bodyBytes);
    cut(entry.exchange.reply.body, limits_.bodyBytes);
    for (const auto& observer : keep(entry)) observer(entry);
}

/// Numbers and stores the entry; returns the observers, to be called without the lock.
std::vector<Journal::Observer> Journal::keep(Entry& entry) {
    const Lock lock(mutex_);
    entry.number = ++recorded_;
    entries_.push_back(entry);
    bytes_ += sizeOf(entry);
    while (entries_.size() > limits_.entries) dropOldest();
    while (entries_.size() > 1 && bytes_ > limits_.bytes) dropOldest();
    return observers_;
}

void Journal::dropOldest() {
    bytes_ -= sizeOf(entries_.front());
    entries_.pop_front();
}

Excerpt Journal::after(std::uint64_t number, std::size_t bytes) const {
    const Lock lock(mutex_);
    Excerpt later{.lost = lostAfter(number), .newest = recorded_};
    std::size_t taken = 0;
    for (const auto& entry : entries_) {
        if (entry.number <= number || taken >= bytes) continue;
        taken += sizeOf(entry);
        later.entries.push_back(entry);
    }
    return later;
}

std::uint64_t Journal::newest() const {
    const Lock lock(mutex_);
    return recorded_;
}

std::uint64_t Journal::lostAfter(std::uint64_t number) const {
    const auto oldest = entries_.empty() ? recorded_ + 1 : entries_.front().number;
    const auto seen = std::max(number, cleared_);
    return oldest > seen + 1 ? oldest - seen - 1 : 0;
}

void Journal::clear() {
    const Lock lock(mutex_);
    entries_.clear();
    cleared_ = recorded_;
    bytes_ = 0;
}

}  // namespace kivo::backend
