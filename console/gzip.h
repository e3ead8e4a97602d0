// Files compressed by gzip, as a whole: they are read into memory, and written from it.
#pragma once

#include <string>
#include <string_view>

namespace modla::console {

// Throw HostError when the file cannot be read or written, is damaged, or holds more than 2^30 bytes.
std::string read_gzip(const std::string &name);
void write_gzip(const std::string &name, std::string_view text);

}  // namespace modla::console
