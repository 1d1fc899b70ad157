// The error object that web requests and parsers hand to their callers.
#pragma once

#include <cstdint>
#include <string>

namespace platform {

struct Error {
    std::string domain;
    std::int64_t code = 0;
    std::string localizedDescription;

    /// What "%@" prints: `Error Domain=… Code=… "…"`.
    std::string description() const;

    bool operator==(const Error&) const = default;
};

} // namespace platform
