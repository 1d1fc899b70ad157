// Requests to the web service: one URL in, one blocking exchange, and the service's plain-text failures as errors.
#pragma once

#include "foundation/error.h"
#include "foundation/value.h"
#include "platform/network.h"

#include <cstdint>
#include <optional>
#include <string>

namespace havrel {

using HVLError = platform::Error;

/// The encodings in which percent-escapes can be written.
enum class StringEncoding { utf8 };

/// Stateless; every operation sends exactly one request on the caller's thread and blocks for up to the default
/// time-out of 60 seconds. A transport failure is in `error`; HTTP status codes are never examined. What the caller's
/// slot held before stays there unless something fails. From any thread.
///
/// A POST moves what follows the first "?" of the URL into the body. Text results are empty after a transport failure
/// and absent when the service answered with an error (then in `error`) or with bytes that are not UTF-8.
class HVLConnectionUtil {
  public:
    /// GET of the whole URL.
    std::optional<std::string> getContentOfUrlGetRequest(const std::string& url, std::optional<HVLError>& error) const;

    /// POST; the answer's bytes, error answers included. Nothing after a transport failure.
    std::optional<std::string> getContentOfUrl(const std::string& url, std::optional<HVLError>& error) const;
    /// The same, but nothing for an error answer. The seconds are ignored on purpose.
    std::optional<std::string> getContentOfUrl(const std::string& url, double timeIntervalinSec,
                                               std::optional<HVLError>& error) const;
    /// As the first, with the service's own credential ("Authorization").
    std::optional<std::string> getContentOfUrlForErrorCode(const std::string& url,
                                                           std::optional<HVLError>& error) const;

    /// POST.
    std::optional<std::string> getStringContentOfUrl(const std::string& url, std::optional<HVLError>& error) const;
    /// The same. The seconds are ignored on purpose.
    std::optional<std::string> getStringContentOfUrl(const std::string& url, double timeIntervalinSec,
                                                     std::optional<HVLError>& error) const;
    /// POST that clears the slot and never reports a transport failure, only an error answer.
    std::optional<std::string> getStringContentOfUrlWithoutSpaceEscape(const std::string& url,
                                                                       std::optional<HVLError>& error) const;

    /// A GET of the whole URL with the product's "User-Agent" and nothing else set, for callers with needs of
    /// their own.
    static platform::network::Request request(const std::string& url);

    /// An error of the service's domain, "com.Dravex.HVLErrorDomain".
    static HVLError addErrorWithCode(std::int64_t code, const std::string& description);
    /// Whether the response, text or bytes, is UTF-8 that begins with "Error: " or "\nError"; if so `error` takes its
    /// text without any "Error: ". An absent response never is one.
    static bool ifErrorMessage(const std::optional<std::string>& response, std::optional<HVLError>& error);
    /// What follows the 9th character when "Success: " occurs anywhere, else the whole text; nothing for a value that
    /// is no text.
    static std::optional<std::string> extractInfoFromSucessStr(const std::optional<platform::Value>& str);
    /// Percent-encoded for use as one query value (":" stays). A value that is no text is encoded as "%@" prints it,
    /// an absent one is empty.
    static std::string urlEncodeUsingEncoding(StringEncoding encoding,
                                              const std::optional<platform::Value>& withString);
};

/// A query value in the encoding of every request.
inline std::string encoded(const std::optional<platform::Value>& parameter) {
    return HVLConnectionUtil::urlEncodeUsingEncoding(StringEncoding::utf8, parameter);
}

} // namespace havrel
