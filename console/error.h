// Errors of the console and of the library that it hosts.
#pragma once

#include <stdexcept>
#include <string>

namespace modla::console {

// An error with its finished message, and lines about where it arose.
struct HostError : std::runtime_error {
    using runtime_error::runtime_error;
    std::string details = {};
};

}  // namespace modla::console
