#pragma once

#include <string_view>

#include "backend/http/Reply.h"
#include "backend/http/Request.h"

/// Replies that arrive intact but say something wrong. Each function takes the good reply; where a
/// fault changes a JSON object, any other body is left as it is.
namespace kivo::backend {

Reply unauthorizedByFault(const Request&, Reply, std::string_view);

/// "503", "503,json", "503,html", "503,empty", or "503,good", which keeps the good body.
bool isStatus(std::string_view argument);
Reply statusByFault(const Request&, Reply good, std::string_view argument);

Reply emptyToken(const Request&, Reply good, std::string_view);
Reply lineBreakToken(const Request&, Reply good, std::string_view);
Reply withoutData(const Request&, Reply good, std::string_view);
Reply refused(const Request&, Reply, std::string_view);
Reply refusedWithData(const Request&, Reply good, std::string_view);
Reply garbage(const Request&, Reply, std::string_view);
Reply truncatedJson(const Request&, Reply good, std::string_view);
Reply wrongTypes(const Request&, Reply good, std::string_view);

}  // namespace kivo::backend
