#include "backend/faults/ZippedZeros.h"

#include <boost/beast/zlib/deflate_stream.hpp>

#include <stdexcept>

namespace kivo::backend {

namespace {

namespace zlib = boost::beast::zlib;
using namespace std::string_literals;

constexpr std::size_t megabyte = 1024 * 1024;
/// Of 1 GiB of zeros. Computing it would take seconds.
constexpr std::uint32_t checksum = 0x5B64C2B0;
const std::string lastBlock = "\x03\0"s;

/// Blocks that end at a byte and refer to nothing before them, so that they can follow one another.
std::string flushed(const std::string& text) {
    std::string packed(text.size() / 16, '\0');
    zlib::z_params step{};
    step.next_in = text.data();
    step.avail_in = text.size();
    step.next_out = packed.data();
    step.avail_out = packed.size();
    zlib::deflate_stream stream;
    boost::system::error_code error;
    stream.write(step, zlib::Flush::full, error);
    if (error || step.avail_in > 0) throw std::runtime_error("cannot compress zeros");
    packed.resize(packed.size() - step.avail_out);
    return packed;
}

std::string littleEndian(std::uint64_t number) {
    std::string bytes;
    for (int shift = 0; shift < 32; shift += 8) bytes += static_cast<char>(number >> shift & 0xFF);
    return bytes;
}

}  // namespace

const ZippedZeros& zippedZeros() {
    static const ZippedZeros zeros = [] {
        ZippedZeros parts{.header = "\x1F\x8B\x08\0\0\0\0\0\0\xFF"s,
                          .megabyte = flushed(std::string(megabyte, '\0')),
                          .trailer = {}};
        parts.trailer =
            lastBlock + littleEndian(checksum) + littleEndian(parts.megabytes * megabyte);
        return parts;
    }();
    return zeros;
}

}  // namespace kivo::backend
