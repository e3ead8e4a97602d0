# The code is clean under these.  (-Wrestrict is off: GCC 12 raises it falsely within std::string.)
add_library(modla_warnings INTERFACE)
target_compile_options(modla_warnings INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wcast-align
  -Wformat=2 -Wundef $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Woverloaded-virtual -Wold-style-cast
  -Wno-restrict>)
