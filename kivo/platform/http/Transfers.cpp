#include "kivo/platform/http/Transfers.h"

namespace kivo::platform {

namespace {

using Speech = HostNotes::Speech;

constexpr int separateLimit = 6;
constexpr int multiplexedLimit = 24;
constexpr int unreadShare = 3;  // A third of a host's places.
constexpr int mostUnread = 16;

}  // namespace

void Transfers::List::push(Entry& entry) noexcept {
    entry.before_ = last_;
    entry.behind_ = nullptr;
    (last_ == nullptr ? first_ : last_->behind_) = &entry;
    last_ = &entry;
}

void Transfers::List::remove(Entry& entry) noexcept {
    (entry.before_ == nullptr ? first_ : entry.before_->behind_) = entry.behind_;
    (entry.behind_ == nullptr ? last_ : entry.behind_->before_) = entry.before_;
}

Transfers::Entry& Transfers::List::pop() noexcept {
    Entry& entry = *first_;
    remove(entry);
    return entry;
}

int Transfers::limitOf(const std::string& name) noexcept {
    return notes_.of(name).speech == Speech::multiplexed ? multiplexedLimit : separateLimit;
}

Transfers::List& Transfers::waitingList(Host& host, const Entry& entry) noexcept {
    return entry.isUnread_ ? host.waitingUnread : host.waiting;
}

void Transfers::add(Entry& entry) {
    Host& host = hosts_[entry.host_];
    entry.state_ = Entry::State::waiting;
    waitingList(host, entry).push(entry);
    waitingUnread_ += entry.isUnread_;
    advance(entry.host_, host);
}

Transfers::Entry* Transfers::next() noexcept {
    if (due_.isEmpty()) return nullptr;
    Entry& entry = due_.pop();
    entry.state_ = Entry::State::running;
    return &entry;
}

void Transfers::connected(const Entry& entry) noexcept {
    const auto found = hosts_.find(entry.host_);
    if (found == hosts_.end() || found->second.first != &entry) return;
    found->second.first = nullptr;
    advance(entry.host_, found->second);
}

void Transfers::ended(Entry& entry, const Ending& ending) noexcept {
    auto& note = notes_.of(entry.host_);
    if (ending.speech != Speech::unknown) note.speech = ending.speech;
    if (ending.hasNotConnected) note.addressIsStale = true;
    // Many transfers on one connection end its generation once.
    if (ending.connectionIsSuspect && note.generation == entry.generation_) ++note.generation;
    leave(entry);
}

bool Transfers::withdraw(Entry& entry) noexcept {
    if (entry.state_ == Entry::State::running) return false;
    if (entry.state_ == Entry::State::due) {
        due_.remove(entry);
        leave(entry);
    } else if (entry.state_ == Entry::State::waiting) {
        const auto found = hosts_.find(entry.host_);
        waitingList(found->second, entry).remove(entry);
        waitingUnread_ -= entry.isUnread_;
        forgetIfIdle(found);
    }
    entry.state_ = Entry::State::out;
    return true;
}

bool Transfers::takeStaleAddress(const Entry& entry) noexcept {
    return std::exchange(notes_.of(entry.host_).addressIsStale, false);
}

/// Passes the place of `entry` on.
void Transfers::leave(Entry& entry) noexcept {
    const auto found = hosts_.find(entry.host_);
    Host& host = found->second;
    entry.state_ = Entry::State::out;
    --host.running;
    if (host.first == &entry) host.first = nullptr;
    host.runningUnread -= entry.isUnread_;
    runningUnread_ -= entry.isUnread_;
    advance(entry.host_, host);
    forgetIfIdle(found);
    if (entry.isUnread_ && waitingUnread_ > 0) advanceUnread();
}

/// Entries that are read wait only while others run.
void Transfers::forgetIfIdle(Hosts::iterator host) noexcept {
    if (host->second.running == 0 && host->second.waitingUnread.isEmpty()) hosts_.erase(host);
}

/// In no particular order of the hosts.
void Transfers::advanceUnread() noexcept {
    for (auto& [name, host] : hosts_)
        if (!host.waitingUnread.isEmpty()) advance(name, host);
}

void Transfers::advance(const std::string& name, Host& host) noexcept {
    while (Entry* entry = pick(name, host)) {
        const auto& note = notes_.of(name);
        if (host.running == 0 && note.speech != Speech::separate) host.first = entry;
        ++host.running;
        host.runningUnread += entry->isUnread_;
        runningUnread_ += entry->isUnread_;
        waitingUnread_ -= entry->isUnread_;
        entry->generation_ = note.generation;
        entry->state_ = Entry::State::due;
        due_.push(*entry);
    }
}

/// Takes the next entry for which there is a place from its waiting list.
Transfers::Entry* Transfers::pick(const std::string& name, Host& host) noexcept {
    const int limit = limitOf(name);
    if (host.first != nullptr || host.running >= limit) return nullptr;
    if (!host.waiting.isEmpty()) return &host.waiting.pop();
    const bool isFull = runningUnread_ >= mostUnread || host.runningUnread >= limit / unreadShare;
    return isFull || host.waitingUnread.isEmpty() ? nullptr : &host.waitingUnread.pop();
}

}  // namespace kivo::platform
