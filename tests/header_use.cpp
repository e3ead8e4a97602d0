// The public header, read by a C++ compiler.
#include "tests/header_use.c"
