#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "backend/admin/AdminClient.h"

/// What the commands print, and the exit status of the one that can fail without a mistake. Each
/// throws std::runtime_error with a text for the person at the keyboard.
namespace kivo::backend::command {

void listFaults(const AdminClient& backend);
void addFault(const AdminClient& backend, const std::string& rule);
/// All of them without a rule.
void clearFaults(const AdminClient& backend, const std::string& rule);
void expire(const AdminClient& backend, const std::string& kind);
void reset(const AdminClient& backend);
void showState(const AdminClient& backend);

struct RequestsOptions {
    bool follow = false;
    bool json = false;
};
/// Following ends with the backend.
void showRequests(const AdminClient& backend, const RequestsOptions& options);

/// Prints a notification's payload whose image the backend serves.
void push(const AdminClient& backend, const std::string& imageFile);

/// Waits for a request of that kind, those included that came before.
int expect(const AdminClient& backend, const std::vector<std::string>& words,
           std::chrono::milliseconds within);

void showAuthorityPath();

}  // namespace kivo::backend::command
