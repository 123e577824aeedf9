// Waits for requests to a running backend.

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdlib>
#include <stdexcept>
#include <thread>

#include "backend/admin/AdminCommands.h"
#include "backend/admin/Expectation.h"
#include "backend/base/NoBackend.h"
#include "backend/base/Terminal.h"

namespace kivo::backend::command {

namespace {

using nlohmann::json;
using Words = std::vector<std::string>;
constexpr std::chrono::milliseconds pollingPause(100);

std::string joined(const std::vector<std::string>& texts, const char* separator) {
    std::string all;
    for (const auto& text : texts) all += (all.empty() ? "" : separator) + text;
    return all;
}

/// Asks for the requests that meet one expectation, each time about the entries since the last.
class Watch {
public:
    Watch(const AdminClient& backend, std::uint64_t after) : backend_(backend), after_(after) {}

    /// The requests that are new.
    json ask(const Words& words) {
        auto answer = json::parse(
            backend_.post("/expectations", json{{"words", words}, {"after", after_}}.dump()));
        requireSameRun(answer.at("run"));
        after_ = answer.at("newest");
        lost_ += answer.at("lost").get<std::uint64_t>();
        noteNearest(answer.at("nearest"));
        return std::move(answer.at("matches"));
    }

    /// Begins anew behind that request, for the next expectation.
    void restartAfter(std::uint64_t number) {
        after_ = number;
        nearest_ = nullptr;
    }

    std::uint64_t lost() const { return lost_; }

    /// Why nothing matched, as far as can be told.
    std::string explanation() const {
        auto text = nearest_.is_null()
                        ? "there was none to that endpoint\n"
                        : "the nearest was\n  " + nearest_.at("line").get<std::string>() + "  " +
                              joined(nearest_.at("differences"), "; ") + "\n";
        if (lost_ > 0) text += lossLine();
        return text;
    }

    std::string lossLine() const {
        return "kivo-dev: " + std::to_string(lost_) + (lost_ == 1 ? " entry is" : " entries are") +
               " no longer kept and could not be searched; --after N leaves old ones out\n";
    }

private:
    /// Of a backend that was started anew, nothing follows about the one that was asked first.
    void requireSameRun(const std::string& run) {
        if (!run_.empty() && run != run_)
            throw NoBackend("the backend ended, and another was started, during the wait");
        run_ = run;
    }

    void noteNearest(const json& nearest) {
        if (nearest.is_null()) return;
        const auto differs = [](const json& found) { return found.at("differences").size(); };
        if (nearest_.is_null() || differs(nearest) <= differs(nearest_)) nearest_ = nearest;
    }

    const AdminClient& backend_;
    std::uint64_t after_;
    std::uint64_t lost_ = 0;
    std::string run_;
    json nearest_;
};

/// The time that is left of the wait.
class Patience {
public:
    explicit Patience(std::chrono::milliseconds within)
        : within_(within), end_(std::chrono::steady_clock::now() + within) {}

    /// Waits a little; false if no time is left.
    bool pause() const {
        const auto now = std::chrono::steady_clock::now();
        if (now >= end_) return false;
        std::this_thread::sleep_for(std::min<std::chrono::nanoseconds>(pollingPause, end_ - now));
        return true;
    }

    std::string text() const { return std::to_string(within_.count()) + " ms"; }

private:
    const std::chrono::milliseconds within_;
    const std::chrono::steady_clock::time_point end_;
};

int fail(const std::string& text) {
    printError("kivo-dev: " + text);
    return EXIT_FAILURE;
}

std::string lineOf(const json& match) { return match.at("line"); }

int expectNone(Watch& watch, const Words& words, const Patience& patience) {
    do {
        const auto matches = watch.ask(words);
        if (!matches.empty()) return fail("a matching request arrived\n  " + lineOf(matches[0]));
    } while (patience.pause());
    if (watch.lost() > 0) return fail("no match was found, but\n" + watch.lossLine());
    print("no matching request within " + patience.text() + "\n");
    return EXIT_SUCCESS;
}

int expectCount(Watch& watch, const Words& words, unsigned count, const Patience& patience) {
    std::vector<std::string> lines;
    do {
        for (const auto& match : watch.ask(words)) lines.push_back(lineOf(match));
    } while (lines.size() < count && patience.pause());
    if (watch.lost() > 0) printError(watch.lossLine());
    if (lines.size() == count && watch.lost() == 0) {
        print(joined(lines, ""));
        return EXIT_SUCCESS;
    }
    return fail("expected " + std::to_string(count) + " matching requests, not " +
                std::to_string(lines.size()) + "; they were\n" + joined(lines, ""));
}

/// Each after the one before it.
int expectInOrder(Watch& watch, const std::vector<Words>& expectations, const Patience& patience) {
    for (const auto& words : expectations) {
        auto matches = watch.ask(words);
        while (matches.empty() && patience.pause()) matches = watch.ask(words);
        if (matches.empty())
            return fail("no request that matches \"" + joined(words, " ") + "\" arrived within " +
                        patience.text() + "; " + watch.explanation());
        print(lineOf(matches[0]));
        watch.restartAfter(matches[0].at("number"));
    }
    return EXIT_SUCCESS;
}

}  // namespace

int expect(const AdminClient& backend, const ExpectOptions& options) {
    const auto expectations = splitExpectations(options.words);
    for (const auto& words : expectations)
        parseExpectation(words);  // Even if no backend is running.
    if (expectations.size() > 1 && (options.none || options.count))
        throw std::invalid_argument("--none and --count take one request");
    const Patience patience(options.within);
    Watch watch(backend, options.after);
    if (options.none) return expectNone(watch, expectations.front(), patience);
    if (options.count) return expectCount(watch, expectations.front(), *options.count, patience);
    return expectInOrder(watch, expectations, patience);
}

}  // namespace kivo::backend::command
