// Files compressed by gzip, as a whole: they are read into memory, and written from it.
#pragma once

#include <istream>
#include <memory>
#include <string>
#include <string_view>

namespace modla::console {

// What a stream holds that begins as gzip's do, or nothing: then the stream is as it was.  name is for messages.
// Both throw HostError when the file cannot be read or written, is damaged, or holds more than 2^30 bytes.
std::unique_ptr<std::istream> unpack_gzip(std::istream &in, const std::string &name);
void write_gzip(const std::string &name, std::string_view text);

}  // namespace modla::console
