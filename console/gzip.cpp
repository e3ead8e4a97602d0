#include "console/gzip.h"

#include <zlib.h>

#include <new>
#include <sstream>
#include <utility>
#include <vector>

#include "console/error.h"

namespace modla::console {

std::unique_ptr<std::istream> unpack_gzip(std::istream &in, const std::string &name) {
    constexpr int first_byte = 0x1f;
    constexpr size_t chunk = 1 << 16;
    if (in.peek() != first_byte) return nullptr;
    z_stream stream = {};
    if (inflateInit2(&stream, MAX_WBITS + 16) != Z_OK) throw std::bad_alloc();
    const std::unique_ptr<z_stream, decltype(&inflateEnd)> held(&stream, inflateEnd);
    std::vector<Bytef> packed(chunk), unpacked(chunk);
    std::string text;
    int status = Z_OK;
    while (true) {
        if (stream.avail_in == 0) {
            in.read(reinterpret_cast<char *>(packed.data()), chunk);
            stream.next_in = packed.data();
            stream.avail_in = static_cast<uInt>(in.gcount());
            if (stream.avail_in == 0) break;
        }
        if (status == Z_STREAM_END) {
            if (*stream.next_in != first_byte) break;  // padding
            inflateReset(&stream);                     // files may be strung together
        }
        do {
            stream.next_out = unpacked.data();
            stream.avail_out = chunk;
            status = inflate(&stream, Z_NO_FLUSH);
            if (status != Z_OK && status != Z_STREAM_END && status != Z_BUF_ERROR)
                throw HostError(name + " is damaged");
            text.append(reinterpret_cast<char *>(unpacked.data()), chunk - stream.avail_out);
            if (text.size() > size_t{1} << 30) throw HostError(name + " is longer than 2^30 bytes when unpacked");
        } while (stream.avail_out == 0);
    }
    if (in.bad()) throw HostError("cannot read " + name);
    if (status != Z_STREAM_END) throw HostError(name + " is cut short");
    return std::make_unique<std::istringstream>(std::move(text), std::ios::binary);
}

void write_gzip(const std::string &name, std::string_view text) {
    gzFile const file = gzopen(name.c_str(), "wb");
    bool done = file;
    for (size_t at = 0; done && at < text.size(); at += 1 << 20) {
        const std::string_view part = text.substr(at, 1 << 20);
        done = gzwrite(file, part.data(), static_cast<unsigned>(part.size())) > 0;
    }
    if (file && gzclose_w(file) != Z_OK) done = false;
    if (!done) throw HostError("cannot write " + name);
}

}  // namespace modla::console
