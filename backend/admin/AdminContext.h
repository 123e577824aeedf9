#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

namespace kivo::backend {

class Desk;

/// What the admin port tells about the backend beside its state.
struct AdminInfo {
    /// The hosts answered here, in one line.
    std::string hosts = {};
    /// What a program needs in its environment to reach this backend, as "NAME=VALUE NAME=VALUE".
    std::string environment = {};
    std::string trustFile = {};
};

/// What the admin port answers from. The desk must outlive it.
struct AdminContext {
    Desk& desk;
    AdminInfo info = {};
    std::chrono::system_clock::time_point start = std::chrono::system_clock::now();
    /// How many clients follow the events.
    std::atomic<std::size_t> followers = 0;

    /// Names this run of the backend, in which entries are numbered from 1.
    std::string run() const {
        using Milliseconds = std::chrono::milliseconds;
        return std::to_string(std::chrono::floor<Milliseconds>(start.time_since_epoch()).count());
    }
};

}  // namespace kivo::backend
