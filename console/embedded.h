// Files that are part of the program, as texts.
#pragma once

extern "C" {
extern const char modla_reference[];  // docs/reference.md
extern const char modla_prelude[];    // console/prelude.modla
extern const char modla_header[];     // include/modla.h
}
