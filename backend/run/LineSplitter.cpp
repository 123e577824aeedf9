#include "backend/run/LineSplitter.h"

namespace kivo::backend {

namespace {

constexpr std::size_t longestLine = 64 * 1024;

}  // namespace

void LineSplitter::add(std::string_view piece) {
    for (auto end = piece.find('\n'); end != piece.npos; end = piece.find('\n')) {
        callback_(begun_.append(piece.substr(0, end)));
        begun_.clear();
        piece.remove_prefix(end + 1);
    }
    begun_.append(piece);
    if (begun_.size() > longestLine) finish();
}

void LineSplitter::finish() {
    if (!begun_.empty()) callback_(begun_);
    begun_.clear();
}

}  // namespace kivo::backend
