# The code is clean under these, of GCC.  (-Wrestrict is off: GCC 12 raises it falsely within std::string.)
add_library(modla_warnings INTERFACE)
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
  target_compile_options(modla_warnings INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wcast-align
    -Wformat=2 -Wundef $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Woverloaded-virtual -Wold-style-cast
    -Wno-restrict>)
else()
  target_compile_options(modla_warnings INTERFACE -Wno-unknown-attributes)
endif()
