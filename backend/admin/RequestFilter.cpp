#include "backend/admin/RequestFilter.h"

#include <algorithm>

#include "backend/admin/Query.h"
#include "backend/service/Endpoints.h"

namespace kivo::backend {

namespace {

bool isLetThrough(const Entry& entry, const RequestFilter& filter) {
    if (entry.kind != EntryKind::request) return false;
    const auto path = entry.exchange.request.path();
    if (filter.endpoint && groupAt(path) != *filter.endpoint) return false;
    if (filter.status && entry.exchange.reply.status != *filter.status) return false;
    return !filter.broken || !entry.violations.empty();
}

}  // namespace

RequestFilter filterIn(const Request& request) {
    RequestFilter filter{.broken = queryNumber(request, "broken").value_or(0) > 0};
    if (const auto name = queryText(request, "endpoint"))
        filter.endpoint = *name == "img" ? *name : endpointMeant(*name, "or img");
    if (const auto status = queryNumber(request, "status"))
        filter.status = static_cast<int>(std::min<std::uint64_t>(*status, 1000));
    filter.limit = queryNumber(request, "limit");
    return filter;
}

std::vector<Entry> filtered(std::vector<Entry> entries, const RequestFilter& filter) {
    std::erase_if(entries, [&](const Entry& entry) { return !isLetThrough(entry, filter); });
    const auto most = filter.limit.value_or(entries.size());
    if (entries.size() > most)
        entries.erase(entries.begin(), entries.end() - static_cast<std::ptrdiff_t>(most));
    return entries;
}

}  // namespace kivo::backend
