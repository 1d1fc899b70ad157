#include "web/HVLCloneHostRegistration.h"

#include "foundation/deployment.h"
#include "foundation/format.h"
#include "foundation/json.h"
#include "logging/HVLLogger.h"
#include "prefs/HVLUserPrefManager.h"
#include "web/AnswerMember.h"
#include "web/HVLConnectionUtil.h"
#include "web/HVLUrl.h"

namespace havrel {

namespace {

namespace text = platform::text;
using platform::Value;

std::string configureClientUrl() {
    return text::format(
        "https://%@/hvlnew/api/config/v1/configureClients?token=%@&topic_id=%@&app_pwd=%@&id=%@&host_description=%@"
        "&os=%@&version=%@&trust_token=%@",
        platform::deployment::settings().apiHost, percentEncoded(hostPreferences().viewerToken()),
        percentEncoded(hostPreferences().proxyTopic()), percentEncoded(hostPreferences().appPassword()),
        percentEncoded(hostPreferences().uniqueID()), percentEncoded(hostPreferences().hostDecription()),
        hostPreferences().MacOSVersionWithAllDigits(), hostPreferences().havrelVersion(),
        percentEncoded(hostPreferences().trustToken()));
}

std::string updateHostInfoUrl() {
    return HVLUrl::getStringUrlBaseNET(text::format(
        "/cgi-bin/hvl/v1/update_host_info.cgi?token=%@&host_description=%@&offline=%d",
        percentEncoded(hostPreferences().hostID()), percentEncoded(hostPreferences().hostDecription()), 0));
}

std::optional<Value> parsed(const std::optional<std::string>& json) {
    std::optional<HVLError> ignored;
    return json ? platform::json::parse(*json, ignored) : std::nullopt;
}

std::optional<Value> member(const std::optional<Value>& object, std::string_view name) {
    const Value* value = object ? object->member(name) : nullptr;
    return value != nullptr ? std::optional(*value) : std::nullopt;
}

/// Stores the token as the host's and as that of the user who is logged in; nullopt clears both.
void store(const std::optional<Value>& token, const std::optional<Value>& topic) {
    hostPreferences().setHostID(token);
    hostPreferences().setProxyTopicHost(topic);
    const auto user = platform::textOf(hostPreferences().loggedInUsername());
    if (user && !user->empty()) {
        hostPreferences().setLoggedinhostIDS(
            platform::Array{token ? platform::Dictionary{{*user, *token}} : platform::Dictionary{}});
    }
}

} // namespace

void HVLCloneHostRegistration::registerNewHostForClone() const {
    if (configureClonedHost()) {
        updateHostInfo();
    }
}

bool HVLCloneHostRegistration::configureClonedHost() const {
    HVLLogger& log = HVLLogger::instance();
    log.logString(text::format("Configure client for new registration: %@", hostPreferences().hostDecription()));
    const std::string url = configureClientUrl();
    std::optional<HVLError> ignored;
    const auto bytes = HVLConnectionUtil().getContentOfUrl(url, ignored);
    if (!bytes) {
        return true;
    }
    const auto answer = parsed(bytes);
    const auto status = member(answer, "status");
    log.logString(text::format("Get Host token response string  is %@", status));
    std::optional<Value> registration;
    if (status == Value("OK")) {
        registration = parsed(platform::textOf(member(answer, "message")));
        const auto refusal = member(registration, "error");
        if (refusal && refusal->integerValue() >= 1) {
            log.logString(url);
            log.logString(answer->description());
            HVLLogger::instanceHost().logString("Service: ConfigureClient: Host description already exist.");
            return false;
        }
    }
    // Anything but a success clears both, so that no stale token stays behind.
    store(storableMember(registration, "access_token"), storableMember(registration, "proxy_topic"));
    return true;
}

void HVLCloneHostRegistration::updateHostInfo() const {
    HVLLogger& log = HVLLogger::instanceHost();
    const std::string url = updateHostInfoUrl();
    log.logString(text::format("Clone : Update Host Info : %@", url));
    std::optional<HVLError> error;
    const auto answer = HVLConnectionUtil().getStringContentOfUrlWithoutSpaceEscape(url, error);
    if (error) {
        log.logString(text::format("Clone : Update Host Info : %@", *error));
    }
    log.logString(text::format("Clone : Update host Info : %@", answer.value_or("")));
}

} // namespace havrel
