#include "backend/faults/ZippedZeros.h"

#include <boost/beast/zlib/deflate_stream.hpp>
#include <boost/crc.hpp>

#include <cstdint>
#include <stdexcept>

namespace kivo::backend {

namespace {

namespace zlib = boost::beast::zlib;
using namespace std::string_literals;

std::string deflated(const std::string& text) {
    std::string packed(text.size() / 16, '\0');
    zlib::z_params step{};
    step.next_in = text.data();
    step.avail_in = text.size();
    step.next_out = packed.data();
    step.avail_out = packed.size();
    zlib::deflate_stream stream;
    boost::system::error_code error;
    stream.write(step, zlib::Flush::finish, error);
    if (error != zlib::error::end_of_stream) throw std::runtime_error("cannot compress zeros");
    packed.resize(packed.size() - step.avail_out);
    return packed;
}

std::string littleEndian(std::size_t number) {
    std::string bytes;
    for (int shift = 0; shift < 32; shift += 8) bytes += static_cast<char>(number >> shift & 0xFF);
    return bytes;
}

std::string gzipMember(const std::string& text) {
    boost::crc_32_type crc;
    crc.process_bytes(text.data(), text.size());
    return "\x1F\x8B\x08\0\0\0\0\0\0\xFF"s + deflated(text) + littleEndian(crc.checksum()) +
           littleEndian(text.size());
}

}  // namespace

std::string zippedZeros() {
    static const std::string member = gzipMember(std::string(1024 * 1024, '\0'));
    return member;
}

}  // namespace kivo::backend
