#include "console/gzip.h"

#include <zlib.h>

#include <memory>

#include "console/error.h"

namespace modla::console {

std::string read_gzip(const std::string &name) {
    const std::unique_ptr<gzFile_s, decltype(&gzclose_r)> file(gzopen(name.c_str(), "rb"), gzclose_r);
    if (!file) throw HostError("cannot open " + name);
    std::string text;
    const auto buffer = std::make_unique<char[]>(1 << 16);
    int count;
    while ((count = gzread(file.get(), buffer.get(), 1 << 16)) > 0) {
        if (text.size() > size_t{1} << 30) throw HostError(name + " is longer than 2^30 bytes when unpacked");
        text.append(buffer.get(), static_cast<size_t>(count));
    }
    int problem;
    gzerror(file.get(), &problem);
    if (problem == Z_ERRNO) throw HostError("cannot read " + name);
    if (problem != Z_OK) throw HostError(name + (problem == Z_BUF_ERROR ? " is cut short" : " is damaged"));
    return text;
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
