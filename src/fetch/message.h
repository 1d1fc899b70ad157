// What the daemon and HavrelFetch tell each other: one request, then one outcome. Each is one message, followed by the
// end of the stream:
//
//   message  = "HVF1" fields                        the digit is the version of this format
//   number   = 4 bytes in the machine's own order
//   text     = number (its length) bytes
//   optional = number 0, or number 1 and a text
//
//   request  = number (time-out in ms) number (longest answer) text (method) text (URL) optional (body)
//              text (proxy) text (hosts without the proxy) optional (trust anchors)
//              number (of headers), for each text (name) text (value)
//   outcome  = number 0 text (answer), or number 1 number (error code without its minus) text (description)
//
// Neither side believes the other: what lacks something, has something left over or exceeds a bound is no message.
// Thread-safe; nullopt when absent.
#pragma once

#include "foundation/error.h"

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace platform::fetch {

/// network::Request, with what the system adds to it.
struct Request {
    std::string url;
    std::string method = "GET";
    std::vector<std::pair<std::string, std::string>> headers = {};
    std::optional<std::string> body = {};
    std::chrono::milliseconds timeout{60'000};
    /// In bytes; a longer answer is an error.
    std::size_t longestAnswer = std::size_t{16} << 20;
    /// As in the system's setting; empty for none.
    std::string proxy = {};
    std::string proxyExceptions = {};
    /// In PEM form; nullopt for the system's own.
    std::optional<std::string> trustAnchors = {};

    bool operator==(const Request&) const = default;
};

/// The answer's body, or why there is none.
using Outcome = std::variant<std::string, Error>;

/// In bytes. The longest is one with a long body and many trust anchors.
inline constexpr std::size_t longestRequest = std::size_t{24} << 20;
/// In bytes: what an outcome has beside its answer, however long the description of an error.
inline constexpr std::size_t longestOutcomeFrame = 1024;

/// The error of a transfer. Codes are negative.
Error transportError(int code, const std::string& description);

/// nullopt when the request is longer than `longestRequest`.
std::optional<std::string> encode(const Request& request);
std::optional<Request> decodeRequest(std::string_view message);

std::string encode(const Outcome& outcome);
/// An error has a negative code and a short description in printable ASCII.
std::optional<Outcome> decodeOutcome(std::string message);

} // namespace platform::fetch
