#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "backend/admin/AdminClient.h"

/// What the commands do. They print to standard output, and throw std::runtime_error with a message
/// for the user on failure. expect() returns an exit status, since an unmet expectation is not an
/// error.
namespace kivo::backend::command {

void listFaults(const AdminClient& backend, bool asJson);
void addFault(const AdminClient& backend, const std::string& rule);
/// Clears all faults if the rule is empty.
void clearFaults(const AdminClient& backend, const std::string& rule);
void expire(const AdminClient& backend, const std::string& kind);
void reset(const AdminClient& backend);
void showState(const AdminClient& backend, bool asJson);

struct RequestsOptions {
    bool follow = false;
    bool json = false;
    std::string endpoint = {};  ///< Empty: all.
    std::optional<unsigned> status = {};
    bool broken = false;
    std::optional<unsigned> limit = {};
};
/// Tells on standard error how many entries are missing. Following stops when the backend does.
void showRequests(const AdminClient& backend, const RequestsOptions& options);

/// Prints the payload of a notification whose image the backend serves.
void push(const AdminClient& backend, const std::string& imageFile);

struct ExpectOptions {
    std::vector<std::string> words = {};  ///< Of one request, or of several separated by "then".
    std::chrono::milliseconds within{0};
    std::uint64_t after = 0;             ///< Only entries with a greater number count.
    bool none = false;                   ///< No such request may arrive.
    std::optional<unsigned> count = {};  ///< So many must arrive, and no more.
};
/// Waits until the expectation is met or can no longer be; earlier requests count too. Throws
/// NoBackend if the backend ends meanwhile.
int expect(const AdminClient& backend, const ExpectOptions& options);

void showAuthorityPath();

}  // namespace kivo::backend::command
