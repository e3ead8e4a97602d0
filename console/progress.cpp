#include "console/progress.h"

#include <unistd.h>

#include <chrono>
#include <iostream>

namespace modla::console {

namespace {

using Clock = std::chrono::steady_clock;

bool allowed = false, shown = false;
Clock::time_point next_time;
std::string &current_stage() {
    static auto *const stage = new std::string;
    return *stage;
}

}  // namespace

void allow_progress() {
    allowed = isatty(STDERR_FILENO);
    next_time = Clock::now() + std::chrono::seconds(1);
}

void show_progress(const std::string &what, int64_t done, int64_t all) {
    if (!allowed || Clock::now() < next_time) return;
    next_time = Clock::now() + std::chrono::milliseconds(100);
    shown = true;
    std::cerr << "\r\x1b[K" << current_stage() << what << " " << std::to_string(done)
              << (all > 0 ? " of " + std::to_string(all) : "") << std::flush;
}

void set_progress_stage(const std::string &stage) {
    current_stage() = stage;
}

void clear_progress() {
    if (shown) std::cerr << "\r\x1b[K" << std::flush;
    shown = false;
}

}  // namespace modla::console
