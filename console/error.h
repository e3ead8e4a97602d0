// Errors of the console and of the library that it hosts.
#pragma once

#include <stdexcept>

namespace modla::console {

// An error with its finished message.
struct HostError : std::runtime_error {
    using runtime_error::runtime_error;
};

}  // namespace modla::console
