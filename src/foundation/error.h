// Errors: objects that callers are handed, and what is thrown.
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

/// A programming error that ends the current work: an index out of range, an absent object put into a container.
class Exception : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

} // namespace platform
