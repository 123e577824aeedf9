#include "backend/service/Images.h"

#include <algorithm>
#include <map>
#include <stdexcept>
#include <utility>

namespace kivo::backend {

namespace {

constexpr std::size_t imageLimit = 16;

/// Only known extensions become part of a name, since names are part of URLs.
const std::map<std::string_view, std::string_view>& types() {
    static const std::map<std::string_view, std::string_view> table{
        {"png", "image/png"},   {"jpg", "image/jpeg"},  {"jpeg", "image/jpeg"},
        {"gif", "image/gif"},   {"webp", "image/webp"}, {"svg", "image/svg+xml"},
        {"avif", "image/avif"}, {"bmp", "image/bmp"},
    };
    return table;
}

std::string_view endingOf(std::string_view name) { return name.substr(name.rfind('.') + 1); }

std::string typeOf(std::string_view name) {
    const auto type = types().find(endingOf(name));
    return std::string(type == types().end() ? "application/octet-stream" : type->second);
}

}  // namespace

std::string Images::add(std::string_view fileName, std::string bytes) {
    if (bytes.empty()) throw std::invalid_argument("the image is empty");
    const Lock lock(mutex_);
    auto name = "push-" + std::to_string(++added_);
    if (types().contains(endingOf(fileName))) name.append(".").append(endingOf(fileName));
    images_.push_back({.name = name, .bytes = std::move(bytes)});
    if (images_.size() > imageLimit) images_.pop_front();
    return name;
}

std::optional<Reply> Images::serve(std::string_view name, bool isHit) {
    const Lock lock(mutex_);
    const auto image = std::ranges::find(images_, name, &Image::name);
    if (image == images_.end()) return std::nullopt;
    if (isHit) ++image->hits;
    return Reply{.headers = {{.name = "Content-Type", .value = typeOf(image->name)}},
                 .body = image->bytes};
}

unsigned Images::hits(std::string_view name) const {
    const Lock lock(mutex_);
    const auto image = std::ranges::find(images_, name, &Image::name);
    return image == images_.end() ? 0 : image->hits;
}

std::vector<Images::Image> Images::list() const {
    const Lock lock(mutex_);
    std::vector<Image> found;
    found.reserve(images_.size());
    for (const auto& image : images_)
        found.push_back({.name = image.name, .bytes = {}, .hits = image.hits});
    return found;
}

void Images::clear() {
    const Lock lock(mutex_);
    images_.clear();
}

}  // namespace kivo::backend
