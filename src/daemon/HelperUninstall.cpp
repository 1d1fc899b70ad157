// Removing the host product: the web service is told first, then the product's own script removes it.
#include "daemon/Helper.h"

#include "daemon/DeviceList.h"
#include "foundation/diagnostics.h"
#include "foundation/format.h"
#include "logging/HVLLogger.h"
#include "platform/clock.h"
#include "platform/processes.h"
#include "prefs/HVLUserPrefManager.h"
#include "web/HVLConnectionUtil.h"
#include "web/HVLUrl.h"

namespace havrel {

namespace {

using platform::Value;
namespace text = platform::text;
using namespace std::chrono_literals;

constexpr const char* uninstaller = R"(/Library/Application\ Support/HVLHostForMac/Uninstaller)";

/// The script's argument: "0" keeps account and configuration, "1" deletes them. Only the text "0" keeps them.
std::string deleteFlag(const std::optional<Value>& userInfo) {
    const Value* asked = userInfo ? userInfo->member("deleteConfigFiles") : nullptr;
    return asked != nullptr && *asked == Value("0") ? "0" : "1";
}

/// What the web service is told, read from the host preferences.
struct Account {
    std::optional<Value> sessionId = hostPreferences().sessionId();
    std::optional<Value> hostID = hostPreferences().hostID();
    std::optional<Value> viewerToken = hostPreferences().viewerToken();
    std::optional<Value> hostClientSignature = hostPreferences().hostClientSignature();
    std::optional<Value> uniqueID = hostPreferences().uniqueID();
};

void deleteAccount(const Account& account) {
    const std::string pattern = HVLUrl::getStringUrlBaseNET(
        "/cgi-bin/hvl/v1/delete_havrel_account.cgi?client_id=%@&client_signature=%@&token=%@");
    const std::string url = text::format(pattern, account.sessionId.value_or(""),
                                         percentEncoded(account.hostClientSignature), percentEncoded(account.hostID));
    std::optional<HVLError> ignored;
    HVLConnectionUtil().getStringContentOfUrl(url, ignored);
}

void deactivateMachine(const Account& account) {
    const auto document = Helper::getJsonStringByDictionary(
        deviceList(account.hostID, account.viewerToken, account.sessionId, account.hostClientSignature));
    const std::string path = text::format("/cgi-bin/hvl/v1/deactivate_machine.cgi?id=%@&device_list=%@",
                                          account.uniqueID, percentEncoded(document));
    std::optional<HVLError> ignored;
    HVLConnectionUtil::send(HVLConnectionUtil::request(HVLUrl::getStringUrlBaseNET(path)), ignored);
}

} // namespace

void Helper::uninstallHavrelAction(const platform::Notification& notification) {
    const std::optional<Value> userInfo = notification.userInfo;
    HVLLogger::instance().logString(
        text::format("objc - HVLHelper : UnInstallAction : Called with notification: %@", userInfo));
    const std::string flag = deleteFlag(userInfo);
    if (flag == "1") {
        platform::diagnostics::contain("deregistration", [this] { deregister(); });
    }
    HVLLogger::instance().logString("objc - HVLHelper : uninstalling HVLHost");
    const std::string command = text::format("sh %@ %@", uninstaller, flag);
    HVLLogger::instance().logString(text::format("objc - HVLHelper :  HVLHost uninstaller script =\n %s", command));
    platform::processes::system(command);
}

void Helper::deregister() {
    const Account account;
    deleteAccount(account);
    deactivateMachine(account);
    platform::clock::sleep(1ms);
    computerSleep_ = "";
    displaySleep_ = "";
    storeSleepTimers();
}

} // namespace havrel
