#pragma once

#include <span>
#include <string_view>

namespace kivo::backend {

/// A file of the inspector page, embedded at build time.
struct PageFile {
    std::string_view name;
    std::string_view text;
    std::string_view zipped;  ///< The text in gzip's format.
};

std::span<const PageFile> pageFiles();

}  // namespace kivo::backend
