#pragma once

/// What kivo-dev ends with.
namespace kivo::backend::exitStatus {

inline constexpr int success = 0;
inline constexpr int failure = 1;  ///< An expectation or the contract.
inline constexpr int usage = 2;
inline constexpr int noBackend = 3;  ///< None is running, or none could be started.
inline constexpr int notExecutable = 126;
inline constexpr int notFound = 127;
inline constexpr int signalled = 128;  ///< Plus the signal's number.

}  // namespace kivo::backend::exitStatus
