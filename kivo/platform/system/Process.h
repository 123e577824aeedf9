#pragma once

#include <chrono>

/// The life of the process as the platform sees it: where it may act, and what it must do once.
namespace kivo::platform::Process {

/// How long the exit hook may hold the process up, all its steps together.
inline constexpr std::chrono::milliseconds exitPatience{40};

/// Whether this is the process that first used the platform, and not a forked child of it.
/// Takes no lock, so every entry asks it before it takes one.
bool isOwn() noexcept;

/// Whether the platform may act: in its own process, until that process begins to end. Takes no
/// lock.
bool isUsable() noexcept;

/// Prepares the process, once, on the first caller's thread and before any thread of ours exists:
/// reads the environment, starts libcurl, registers the exit hook and pins the library in memory.
void prepare();

}  // namespace kivo::platform::Process
