#include "web/HVLConnectionUtil.h"

#include "foundation/base64.h"
#include "foundation/format.h"
#include "foundation/text.h"
#include "foundation/unicode.h"
#include "prefs/HVLUserPrefManager.h"
#include "util/ServiceStatus.h"
#include "web/UrlEscaping.h"

#include <string_view>
#include <utility>

namespace havrel {

namespace {

namespace network = platform::network;
namespace text = platform::text;

constexpr std::string_view errorMarker = "Error: ";
constexpr std::string_view successMarker = "Success: ";

/// The version comes from a file that others may write; it must not make every request huge.
constexpr std::size_t longestVersion = 256;

constexpr std::string_view serviceUser = "svc4821_lmn";
constexpr std::string_view servicePassword = "k#7mQ@z2Lp0$w91";

/// A POST to the URL up to its first "?", with the rest as the body. Its length header is set by `sendPost`.
network::Request postRequest(const std::string& url) {
    const std::size_t question = url.find('?');
    network::Request request = HVLConnectionUtil::request(url.substr(0, question));
    request.method = "POST";
    if (question != std::string::npos) {
        request.body = url.substr(question + 1);
    }
    return request;
}

std::optional<std::string> sendPost(network::Request request, std::optional<HVLError>& error) {
    if (request.body) {
        // UTF-16 units, not bytes: that is what the service's endpoints have always been sent.
        request.headers.emplace_back("Content-length", text::format("%lu", text::length(*request.body)));
    }
    return HVLConnectionUtil::send(request, error);
}

/// The answer as text; nullopt for an error answer, empty after a transport failure.
std::optional<std::string> checkedText(const std::optional<std::string>& answer, std::optional<HVLError>& error) {
    if (HVLConnectionUtil::ifErrorMessage(answer, error)) {
        return std::nullopt;
    }
    return text::decodeUtf8(answer.value_or(""));
}

} // namespace

std::optional<std::string> HVLConnectionUtil::getContentOfUrlGetRequest(const std::string& url,
                                                                        std::optional<HVLError>& error) const {
    return checkedText(send(request(url), error), error);
}

std::optional<std::string> HVLConnectionUtil::getContentOfUrl(const std::string& url,
                                                              std::optional<HVLError>& error) const {
    return sendPost(postRequest(url), error);
}

std::optional<std::string> HVLConnectionUtil::getContentOfUrl(const std::string& url, double /*timeIntervalinSec*/,
                                                              std::optional<HVLError>& error) const {
    auto answer = getContentOfUrl(url, error);
    if (ifErrorMessage(answer, error)) {
        return std::nullopt;
    }
    return answer;
}

std::optional<std::string> HVLConnectionUtil::getContentOfUrlForErrorCode(const std::string& url,
                                                                          std::optional<HVLError>& error) const {
    network::Request request = postRequest(url);
    const std::string credential = text::format("%@:%@", serviceUser, servicePassword);
    request.headers.emplace_back("Authorization", text::format("Basic %@", platform::base64::encode(credential)));
    return sendPost(std::move(request), error);
}

std::optional<std::string> HVLConnectionUtil::getStringContentOfUrl(const std::string& url,
                                                                    std::optional<HVLError>& error) const {
    return checkedText(getContentOfUrl(url, error), error);
}

std::optional<std::string> HVLConnectionUtil::getStringContentOfUrl(const std::string& url,
                                                                    double /*timeIntervalinSec*/,
                                                                    std::optional<HVLError>& error) const {
    return getStringContentOfUrl(url, error);
}

std::optional<std::string>
HVLConnectionUtil::getStringContentOfUrlWithoutSpaceEscape(const std::string& url,
                                                           std::optional<HVLError>& error) const {
    error.reset();
    const auto answer = getContentOfUrl(url, error);
    // To the callers an error means that the service refused, so a failure to reach it is dropped.
    error.reset();
    return checkedText(answer, error);
}

network::Request HVLConnectionUtil::request(const std::string& url) {
    network::Request request;
    request.url = url;
    const std::string version = text::format("%@", hostPreferences().havrelVersion());
    request.headers.emplace_back("User-Agent", "Havrel Mac:" + text::prefix(version, longestVersion));
    return request;
}

std::optional<std::string> HVLConnectionUtil::send(const network::Request& request, std::optional<HVLError>& error) {
    auto answer = network::sendSynchronousRequest(request, error);
    service_status::noteRequest(request.url, answer ? std::nullopt : error);
    return answer;
}

HVLError HVLConnectionUtil::addErrorWithCode(std::int64_t code, const std::string& description) {
    return {"com.Dravex.HVLErrorDomain", code, description};
}

bool HVLConnectionUtil::ifErrorMessage(const std::optional<std::string>& response, std::optional<HVLError>& error) {
    const bool marked = response && (response->starts_with("\nError") || response->starts_with(errorMarker));
    if (!marked || !text::isValidUtf8(*response)) {
        return false;
    }
    error = addErrorWithCode(0, text::replaceAll(*response, errorMarker, ""));
    return true;
}

std::optional<std::string> HVLConnectionUtil::extractInfoFromSucessStr(const std::optional<platform::Value>& str) {
    auto payload = platform::textOf(str);
    if (payload && payload->find(successMarker) != std::string::npos) {
        // Cut off at the start wherever it was found: the service always writes it first.
        return text::dropPrefix(*payload, successMarker.size());
    }
    return payload;
}

std::string HVLConnectionUtil::urlEncodeUsingEncoding(StringEncoding /*encoding*/,
                                                      const std::optional<platform::Value>& withString) {
    return withString ? url_escaping::escaped(withString->description(), url_escaping::queryValue) : std::string();
}

} // namespace havrel
