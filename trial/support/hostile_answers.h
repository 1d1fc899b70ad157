// What a web service may send to wear out or mislead a client.
#pragma once

#include "trial/support/web_service.h"

#include <cstdint>
#include <vector>

namespace trial {

struct HostileAnswer {
    const char* name;
    WebAnswer answer;
    /// How the request has to end, in "NSURLErrorDomain".
    std::int64_t errorCode;
};

/// A careful client ends each one by itself, long before any time-out.
std::vector<HostileAnswer> hostileAnswers();

/// These never end by themselves; only a time-out does it.
std::vector<HostileAnswer> slowAnswers();

} // namespace trial
