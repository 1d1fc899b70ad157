// What a web service may send to wear out or mislead a client.
#pragma once

#include "trial/support/web_service.h"

#include <cstdint>
#include <vector>

namespace trial {

struct HostileAnswer {
    const char* name;
    WebAnswer answer;
    /// How the request has to end, in "NSURLErrorDomain"; 0 for an answer that is to be taken.
    std::int64_t errorCode = 0;
    /// The body that is to be taken.
    std::optional<std::string> body = {};
    /// That the request should have.
    std::chrono::milliseconds timeout = std::chrono::seconds(10);
};

/// A careful client ends each one by itself, long before the time-out.
std::vector<HostileAnswer> hostileAnswers();

/// These never end by themselves; only the time-out does it.
std::vector<HostileAnswer> slowAnswers();

/// Unusual, but right.
std::vector<HostileAnswer> oddAnswers();

} // namespace trial
