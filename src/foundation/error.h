// Errors that callers are handed, and errors that are thrown.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace platform {

/// What web requests and parsers put into their caller's error slot.
struct Error {
    std::string domain;
    std::int64_t code = 0;
    std::string localizedDescription;

    /// What "%@" prints: `Error Domain=… Code=… "…"`.
    std::string description() const;

    bool operator==(const Error&) const = default;
};

/// Thrown where the current work can't go on: misuse, such as an index out of range or an absent object for a
/// container, or a program that can't be started.
class Exception : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

} // namespace platform
