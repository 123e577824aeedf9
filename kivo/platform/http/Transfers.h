#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>
#include <utility>

#include "kivo/platform/http/HostNotes.h"

namespace kivo::platform {

/// Decides which transfers run: six at a time to one host, or 24 once it has answered over a
/// connection that it shares among them. To a host that is unknown, or that shares its connections,
/// the first goes alone until it has connected, for the others to share what it finds. Transfers
/// whose reply nobody reads have a third of a host's places, and 16 over all hosts; they never go
/// ahead of others. The rest wait their turn here and not inside libcurl, whose own waiting list
/// can miss a connection that has become free. Plain data: its owner guards it.
class Transfers {
public:
    /// A transfer as far as its turn goes. Whoever owns it keeps it until it has ended.
    class Entry {
    public:
        /// `host` is the server, as "host:port".
        Entry(std::string host, bool isUnread) : host_(std::move(host)), isUnread_(isUnread) {}
        Entry(const Entry&) = delete;
        Entry& operator=(const Entry&) = delete;

        const std::string& host() const { return host_; }

        /// Sets apart the connections that it may share. Settled when its turn comes.
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

    /// What the end of a transfer tells of its host.
    struct Ending {
        HostNotes::Speech speech = HostNotes::Speech::unknown;
        bool connectionIsSuspect = false;  ///< It ended by a limit or a cancel.
        bool nobodyAnswered = false;       ///< It could not connect.
    };

    /// Takes `entry` in. Throws std::bad_alloc: it is then not taken in.
    void add(Entry& entry);

    /// One whose turn has come, which begins now, or null.
    Entry* next() noexcept;

    /// Notes that `entry` has a connection. Calls of a transfer that has one do nothing.
    void connected(const Entry& entry) noexcept;

    /// Takes `entry` out, which has begun.
    void ended(Entry& entry, const Ending& ending) noexcept;

    /// Takes `entry` out if it has not begun; returns whether that is so.
    bool withdraw(Entry& entry) noexcept;

    /// Whether the address of the host of `entry` is to be looked up anew; says so once.
    bool takeStaleAddress(const Entry& entry) noexcept;

private:
    /// Entries chained through themselves: to wait takes no memory.
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
