#include "tests/support/ScriptedBackend.h"

#include <algorithm>
#include <fstream>
#include <stdexcept>

#include "tests/support/Patience.h"

namespace kivo::tests {

ScriptedBackend::Trust ScriptedBackend::makeTrust(const std::filesystem::path& folder,
                                                  std::vector<std::string> hosts) {
    const auto authority = backend::Authority::make(hosts);
    const auto file = folder / "scripted-backend.pem";
    std::ofstream(file) << authority.certificate();
    std::ranges::copy(backend::loopbackHosts(), std::back_inserter(hosts));
    return {.identity = authority.issue(hosts), .file = file};
}

ScriptedBackend::ScriptedBackend(Trust trust)
    : trust_(std::move(trust)),
      server_({.identity = trust_.identity,
               .handler = [this](const Request& request) { return take(request)(request); }}) {}

std::unique_ptr<ScriptedBackend> ScriptedBackend::sibling() const {
    return std::unique_ptr<ScriptedBackend>(new ScriptedBackend(trust_));
}

void ScriptedBackend::answer(std::string_view pathSuffix, Answer answer) {
    const std::lock_guard lock(mutex_);
    const auto script = scripts_.try_emplace(std::string(pathSuffix), 1).first;
    script->second.push_back(std::move(answer));
}

/// Records the request and picks its answer in one step, so that a test that sees the
/// request can already script the next one.
ScriptedBackend::Answer ScriptedBackend::take(const Request& request) {
    const std::lock_guard lock(mutex_);
    requests_.push_back(request);
    arrived_.notify_all();
    Script* script = scriptFor(request.path());
    if (!script) return [](const Request&) { return refusedReply(404, "nobody scripted this"); };
    if (script->size() > 1) script->pop_front();
    return script->front();
}

/// That of the longest end of the path that has one.
ScriptedBackend::Script* ScriptedBackend::scriptFor(std::string_view path) {
    const auto script = scripts_.find(path);
    if (script != scripts_.end()) return &script->second;
    return path.empty() ? nullptr : scriptFor(path.substr(1));
}

std::vector<Request> ScriptedBackend::requests(std::string_view pathSuffix) const {
    const std::lock_guard lock(mutex_);
    return found(pathSuffix);
}

Request ScriptedBackend::last(std::string_view pathSuffix) const {
    const auto all = requests(pathSuffix);
    if (all.empty()) throw std::runtime_error("no request for " + std::string(pathSuffix));
    return all.back();
}

bool ScriptedBackend::awaitRequests(std::string_view pathSuffix, std::size_t count) const {
    std::unique_lock lock(mutex_);
    return arrived_.wait_for(lock, patience, [&] { return found(pathSuffix).size() >= count; });
}

std::vector<Request> ScriptedBackend::found(std::string_view pathSuffix) const {
    std::vector<Request> matching;
    for (const auto& request : requests_) {
        if (request.path().ends_with(pathSuffix)) matching.push_back(request);
    }
    return matching;
}

}  // namespace kivo::tests
