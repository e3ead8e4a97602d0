// A line on standard error that tells how far long work is.
#pragma once

#include <cstdint>
#include <string>

namespace modla::console {

// From now on, if standard error is a terminal.
void allow_progress();

// Shown after a second of work, ten times a second at most; all = 0 when the end is not known.
void show_progress(const std::string &what, int64_t done, int64_t all);

// Of which part of the work the next ones tell.
void set_progress_stage(const std::string &stage);

// Clears the line, before anything else is written.
void clear_progress();

}  // namespace modla::console
