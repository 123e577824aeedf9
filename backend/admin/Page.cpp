#include "backend/admin/Page.h"

#include <algorithm>
#include <string>
#include <string_view>

#include "backend/admin/PageFiles.h"

namespace kivo::backend {

namespace {

/// Trusted Types make the browser itself refuse to turn text into markup.
constexpr const char* policy =
    "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; "
    "img-src 'self' blob: data:; base-uri 'none'; form-action 'none'; frame-ancestors 'none'; "
    "require-trusted-types-for 'script'; trusted-types 'none'";

std::string typeOf(std::string_view name) {
    const auto is = [&](std::string_view suffix) { return name.ends_with(suffix); };
    const std::string type = is(".html") ? "html" : is(".css") ? "css" : "javascript";
    return "text/" + (is(".md") ? "markdown" : type) + "; charset=utf-8";
}

}  // namespace

std::optional<Reply> pageFile(const Request& request) {
    auto name = request.path();
    name.remove_prefix(name.starts_with('/') ? 1 : 0);
    if (name.empty()) name = "index.html";
    const auto file = std::ranges::find(pageFiles(), name, &PageFile::name);
    if (file == pageFiles().end()) return std::nullopt;
    const bool zips = request.header("Accept-Encoding").find("gzip") != std::string::npos;
    Reply reply{.headers = {{"Content-Type", typeOf(name)},
                            {"Content-Security-Policy", policy},
                            {"Referrer-Policy", "no-referrer"},
                            {"Cache-Control", "no-cache"},
                            {"Vary", "Accept-Encoding"}},
                .body = std::string(zips ? file->zipped : file->text)};
    if (zips) reply.headers.push_back({.name = "Content-Encoding", .value = "gzip"});
    return reply;
}

}  // namespace kivo::backend
