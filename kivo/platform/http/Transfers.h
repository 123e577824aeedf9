#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>
#include <utility>

#include "kivo/platform/http/HostNotes.h"

namespace kivo::platform {

/// Decides which transfers run: six at a time to one host, or 24 to a host that has multiplexed its
/// replies. The first transfer to a host that is unknown, or that multiplexes, goes alone until it
/// has connected, so that the others can share its connection. Transfers whose reply body is
/// discarded have a third of a host's places and 16 over all hosts, and never go ahead of others.
/// The rest wait here, not inside libcurl, whose own waiting list can miss a connection that has
/// become free. Plain data, without threads or I/O.
class Transfers {
public:
    /// A transfer's place among the others. Its owner keeps it until it has ended.
    class Entry {
    public:
        /// `host` is the server, as "host:port".
        Entry(std::string host, bool isUnread) : host_(std::move(host)), isUnread_(isUnread) {}
        Entry(const Entry&) = delete;
        Entry& operator=(const Entry&) = delete;

        /// Marks the connections that it may share. Set when its turn comes.
        unsigned generation() const { return generation_; }

    protected:
        ~Entry() = default;

    private:
        friend class Transfers;
        enum class State : std::uint8_t { out, waiting, due, running };

        const std::string host_;
        const bool isUnread_;
        State state_ = State::out;
        unsigned generation_ = 0;
        Entry* before_ = nullptr;
        Entry* behind_ = nullptr;
    };

    /// What the end of a transfer says about its host.
    struct Ending {
        HostNotes::Speech speech = HostNotes::Speech::unknown;
        bool connectionIsSuspect = false;  ///< A time limit or a cancel ended it.
        bool hasNotConnected = false;      ///< The address may be out of date.
    };

    /// Adds `entry`. Throws std::bad_alloc; it is then not added.
    void add(Entry& entry);

    /// Returns an entry whose turn has come, and counts it as running; null if there is none.
    Entry* next() noexcept;

    /// Notes that `entry` has connected; further calls for the same entry do nothing.
    void connected(const Entry& entry) noexcept;

    /// Removes `entry`, which was running.
    void ended(Entry& entry, const Ending& ending) noexcept;

    /// Removes `entry` unless it is running; returns whether it has.
    bool withdraw(Entry& entry) noexcept;

    /// Returns, once, whether the host's address must be looked up again.
    bool takeStaleAddress(const Entry& entry) noexcept;

private:
    /// An intrusive list, so that waiting needs no memory.
    class List {
    public:
        bool isEmpty() const noexcept { return first_ == nullptr; }
        void push(Entry& entry) noexcept;
        void remove(Entry& entry) noexcept;
        Entry& pop() noexcept;

    private:
        Entry* first_ = nullptr;
        Entry* last_ = nullptr;
    };

    struct Host {
        int running = 0;
        int runningUnread = 0;
        const Entry* first = nullptr;  // Until it has connected or ended.
        List waiting;
        List waitingUnread;
    };
    using Hosts = std::unordered_map<std::string, Host>;

    int limitOf(const std::string& name) noexcept;
    List& waitingList(Host& host, const Entry& entry) noexcept;
    Entry* pick(const std::string& name, Host& host) noexcept;
    void advance(const std::string& name, Host& host) noexcept;
    void advanceUnread() noexcept;
    void leave(Entry& entry) noexcept;
    void forgetIfIdle(Hosts::iterator host) noexcept;

    Hosts hosts_;
    HostNotes notes_;
    List due_;
    int runningUnread_ = 0;
    int waitingUnread_ = 0;
};

}  // namespace kivo::platform
