// Requests to the web service. Its plain-text error answers ("Error: …") become errors.
#pragma once

#include "foundation/error.h"
#include "foundation/value.h"
#include "platform/network.h"

#include <cstdint>
#include <optional>
#include <string>

namespace havrel {

using HVLError = platform::Error;

/// The encoding whose bytes percent-escapes stand for.
enum class StringEncoding { utf8 };

/// Stateless and thread-safe. A request blocks for up to 60 seconds and is never repeated. HTTP status codes are not
/// examined. `error` is set by a transport failure or an error answer and otherwise left as it was.
///
/// A POST moves what follows the first "?" of the URL into the body. Byte results are nullopt after a transport
/// failure; text results are then empty, and nullopt after an error answer or if the bytes are not UTF-8.
class HVLConnectionUtil {
  public:
    /// GET of the whole URL; text.
    std::optional<std::string> getContentOfUrlGetRequest(const std::string& url, std::optional<HVLError>& error) const;

    /// POST; the answer's bytes, error answers included.
    std::optional<std::string> getContentOfUrl(const std::string& url, std::optional<HVLError>& error) const;
    /// POST; the answer's bytes, nullopt for an error answer. The seconds are ignored: the time-out is always 60 s.
    std::optional<std::string> getContentOfUrl(const std::string& url, double timeIntervalinSec,
                                               std::optional<HVLError>& error) const;
    /// POST with the service's own credential ("Authorization"); the answer's bytes, error answers included.
    std::optional<std::string> getContentOfUrlForErrorCode(const std::string& url,
                                                           std::optional<HVLError>& error) const;

    /// POST; text.
    std::optional<std::string> getStringContentOfUrl(const std::string& url, std::optional<HVLError>& error) const;
    /// The same: the seconds are ignored.
    std::optional<std::string> getStringContentOfUrl(const std::string& url, double timeIntervalinSec,
                                                     std::optional<HVLError>& error) const;
    /// POST; text. Clears `error` and reports error answers only, no transport failure.
    std::optional<std::string> getStringContentOfUrlWithoutSpaceEscape(const std::string& url,
                                                                       std::optional<HVLError>& error) const;

    /// A GET of the whole URL with only the product's "User-Agent" set, for callers that send it themselves.
    static platform::network::Request request(const std::string& url);

    /// Sends it, as everybody here does, so that the service's state shows whether the web can be reached.
    static std::optional<std::string> send(const platform::network::Request& request, std::optional<HVLError>& error);

    /// An error in the service's domain, "com.Dravex.HVLErrorDomain".
    static HVLError addErrorWithCode(std::int64_t code, const std::string& description);
    /// Whether the response is UTF-8 that begins with "Error: " or "\nError". If so, `error` is set, described by the
    /// response without any "Error: ".
    static bool ifErrorMessage(const std::optional<std::string>& response, std::optional<HVLError>& error);
    /// The text without its first 9 characters if "Success: " occurs anywhere in it, else all of it; nullopt if the
    /// value is no text.
    static std::optional<std::string> extractInfoFromSucessStr(const std::optional<platform::Value>& str);
    /// Percent-encoded for use as one query value; ":" stays. A value that is no text is encoded as "%@" prints it,
    /// nullopt as an empty text.
    static std::string urlEncodeUsingEncoding(StringEncoding encoding,
                                              const std::optional<platform::Value>& withString);
};

/// A query value in UTF-8, as in all requests.
inline std::string percentEncoded(const std::optional<platform::Value>& parameter) {
    return HVLConnectionUtil::urlEncodeUsingEncoding(StringEncoding::utf8, parameter);
}

} // namespace havrel
