#include "backend/Journal.h"

#include "backend/RequestLine.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace kivo::tests {
namespace {

using namespace std::chrono_literals;
using backend::Exchange;
using backend::Journal;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;

TEST(JournalTest, KeepsTheNewestAndTellsObserversOfAll) {
    Journal journal(2);
    std::vector<std::string> seen;
    journal.observe([&](const Exchange& exchange) { seen.push_back(exchange.request.target); });
    for (const auto* target : {"/1", "/2", "/3"}) journal.record({.request = {.target = target}});
    EXPECT_THAT(seen, ElementsAre("/1", "/2", "/3"));
    ASSERT_EQ(journal.recent().size(), 2);
    EXPECT_EQ(journal.recent().front().request.target, "/2");
}

TEST(JournalTest, CutsLongBodiesWithANote) {
    Journal journal;
    journal.record({.request = {.body = std::string(100'000, 'x')}, .reply = {.body = "short"}});
    const auto kept = journal.recent().at(0);
    EXPECT_LT(kept.request.body.size(), 66'000);
    EXPECT_THAT(kept.request.body, EndsWith("x… (100000 bytes in all)"));
    EXPECT_EQ(kept.reply.body, "short");
}

TEST(RequestLineTest, ShowsAnExchangeWithoutObeyingIt) {
    const auto line =
        backend::requestLine({.request = {.method = "PUT", .target = "/a\x1b[2J\xC3?secret"},
                              .reply = {.status = 401},
                              .duration = 12ms,
                              .delivered = true});
    EXPECT_THAT(line, HasSubstr("  PUT /a?[2J?  401  12 ms\n"));
    EXPECT_THAT(backend::requestLine({.reply = {.status = 400}}),
                HasSubstr("  (no HTTP request)  400  0 ms  (not delivered)\n"));
}

}  // namespace
}  // namespace kivo::tests
