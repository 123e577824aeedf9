#include "tests/support/ScriptedBackend.h"

#include "backend/Envelope.h"

#include <fstream>
#include <stdexcept>
#include <utility>

namespace kivo::tests {
namespace {

std::vector<std::string> allHosts(const std::vector<std::string>& extraHosts) {
    auto hosts = backend::loopbackHosts();
    hosts.insert(hosts.end(), extraHosts.begin(), extraHosts.end());
    return hosts;
}

std::string written(const std::filesystem::path& file, const std::string& text) {
    std::ofstream stream(file);
    stream << text << std::flush;
    if (!stream) throw std::runtime_error("cannot write " + file.string());
    return file.string();
}

}  // namespace

struct ScriptedBackend::Trust {
    backend::Identity identity;
    std::string file;

    static std::shared_ptr<const Trust> make(const std::filesystem::path& folder,
                                             const std::vector<std::string>& extraHosts) {
        const auto authority = backend::Authority::make(extraHosts);
        return std::make_shared<Trust>(
            Trust{.identity = authority.issue(allHosts(extraHosts)),
                  .file = written(folder / "scripted-backend.pem", authority.certificate())});
    }
};

ScriptedBackend::ScriptedBackend(const std::filesystem::path& folder,
                                 const std::vector<std::string>& extraHosts)
    : ScriptedBackend(Trust::make(folder, extraHosts)) {}

ScriptedBackend::ScriptedBackend(std::shared_ptr<const Trust> trust)
    : trust_(std::move(trust)),
      server_({.identity = trust_->identity,
               .handler = [this](const Request& request) { return reply(request); }}) {}

ScriptedBackend::~ScriptedBackend() { stop(); }

std::unique_ptr<ScriptedBackend> ScriptedBackend::sibling() const {
    return std::unique_ptr<ScriptedBackend>(new ScriptedBackend(trust_));
}

void ScriptedBackend::answer(std::string_view pathSuffix, Reply reply) {
    answer(pathSuffix, [reply = std::move(reply)](const Request&) { return reply; });
}

void ScriptedBackend::answer(std::string_view pathSuffix, Answer answer) {
    const std::lock_guard lock(mutex_);
    scripts_[std::string(pathSuffix)].push_back({.say = std::move(answer)});
}

Reply ScriptedBackend::reply(const Request& request) {
    const Answer answer = take(request);
    return answer ? answer(request) : backend::refusal(404, "nobody scripted this path");
}

/// Records the request and picks its answer in one step: whoever sees the request may script the
/// next one.
ScriptedBackend::Answer ScriptedBackend::take(const Request& request) {
    const std::lock_guard lock(mutex_);
    requests_.push_back(request);
    arrived_.notify_all();
    Script* best = scriptFor(request.path());
    if (!best) return {};
    if (best->front().used && best->size() > 1) best->pop_front();
    best->front().used = true;
    return best->front().say;
}

ScriptedBackend::Script* ScriptedBackend::scriptFor(std::string_view path) {
    Script* longest = nullptr;
    std::size_t size = 0;
    for (auto& [suffix, script] : scripts_) {
        if (!path.ends_with(suffix) || (longest && suffix.size() < size)) continue;
        longest = &script;
        size = suffix.size();
    }
    return longest;
}

std::vector<Request> ScriptedBackend::requests(std::string_view pathSuffix) const {
    const std::lock_guard lock(mutex_);
    return found(pathSuffix);
}

Request ScriptedBackend::last(std::string_view pathSuffix) const {
    auto all = requests(pathSuffix);
    if (all.empty()) throw std::runtime_error("no request for " + std::string(pathSuffix));
    return std::move(all.back());
}

bool ScriptedBackend::awaitRequests(std::string_view pathSuffix, std::size_t count,
                                    std::chrono::milliseconds patience) const {
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

void ScriptedBackend::release() { server_.release(); }

void ScriptedBackend::stop() { server_.stop(); }

std::uint16_t ScriptedBackend::port() const { return server_.port(); }

std::string ScriptedBackend::trustFile() const { return trust_->file; }

std::string ScriptedBackend::url(std::string_view path) const {
    return "https://localhost:" + std::to_string(port()) + "/" + std::string(path);
}

std::string ScriptedBackend::plainUrl(std::string_view path) const {
    return proxyUrl() + "/" + std::string(path);
}

std::string ScriptedBackend::proxyUrl() const {
    return "http://127.0.0.1:" + std::to_string(port());
}

}  // namespace kivo::tests
