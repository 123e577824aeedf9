#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "backend/admin/AdminClient.h"

/// What the commands do. They print to standard output, and throw std::runtime_error with a message
/// for the user on failure. expect() returns an exit status, since an unmet expectation is not an
/// error.
namespace kivo::backend::command {

void listFaults(const AdminClient& backend);
void addFault(const AdminClient& backend, const std::string& rule);
/// Clears all faults if the rule is empty.
void clearFaults(const AdminClient& backend, const std::string& rule);
void expire(const AdminClient& backend, const std::string& kind);
void reset(const AdminClient& backend);
void showState(const AdminClient& backend);

struct RequestsOptions {
    bool follow = false;
    bool json = false;
};
/// Following stops when the backend does.
void showRequests(const AdminClient& backend, const RequestsOptions& options);

/// Prints the payload of a notification whose image the backend serves.
void push(const AdminClient& backend, const std::string& imageFile);

/// Waits for a matching request; earlier requests count too.
int expect(const AdminClient& backend, const std::vector<std::string>& words,
           std::chrono::milliseconds within);

void showAuthorityPath();

}  // namespace kivo::backend::command
