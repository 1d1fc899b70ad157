#include "proxy/HVLPlistManager.h"

#include "foundation/error.h"
#include "foundation/format.h"
#include "foundation/json.h"
#include "logging/HVLLogger.h"
#include "platform/files.h"
#include "platform/notifications.h"
#include "platform/processes.h"
#include "platform/system_info.h"
#include "util/ProductPaths.h"
#include "web/HVLConnectionUtil.h"
#include "web/HVLUrl.h"
#include "web/UrlEscaping.h"

namespace havrel {

namespace text = platform::text;
using platform::Value;

namespace {

/// Always the first record of a mapped answer.
constexpr const char* firstProxy = "P1";

/// In milliseconds; a best stored latency above it is logged as "isPingToALL:1".
constexpr std::int32_t slowLatency = 50;

void log(const std::string& line) { HVLLogger::instanceHost().logString(line); }

std::string listUrl() { return HVLUrl::getStringUrlBaseNET("/cgi-bin/hvl/v4/get_proxy_list.cgi"); }

/// Meant to open the files to everyone. The path is unquoted and contains a blank, so the shell sees two other files
/// and nothing changes. The command lines are fixed, AllProxies.plist twice included.
void chmodProxyFiles() {
    for (const std::string& path : {paths::proxies, paths::allProxies, paths::allProxies}) {
        platform::processes::system(text::format("sudo chmod 777 %@", path));
    }
}

std::optional<std::string> domainOf(const Value* proxy) {
    return proxy != nullptr ? proxy->textMember("domain") : std::nullopt;
}

/// Fisher-Yates from the front, so that hosts don't all prefer the same proxies. The modulo bias doesn't matter.
void shuffle(HVLPingMutableArray& list) {
    for (std::size_t i = 0; i < list.count(); ++i) {
        const std::size_t other = i + platform::system_info::random() % (list.count() - i);
        const HVLPingHostPtr record = list.objectAtIndex(i);
        list.replaceObjectAtIndex(i, list.objectAtIndex(other));
        list.replaceObjectAtIndex(other, record);
    }
}

/// Whether the best stored latency is a slow one; logs it.
bool isPingToAll(HVLPingMutableArray stored) {
    stored.removeAllZeroPings();
    stored.sortPingArrayByMinimumPingTime();
    if (stored.count() == 0) {
        return false;
    }
    const HVLPingHost& best = *stored.objectAtIndex(0);
    const std::uint64_t latency = best.pingTime();
    log(text::format("Host Name: %@ Latency: %lu", best.ipAddr(), latency));
    return static_cast<std::int32_t>(latency) > slowLatency;
}

} // namespace

HVLPlistManager HVLPlistManager::initWithPlist(std::string path) {
    HVLPlistManager manager;
    manager.hostPlistPath_ = std::move(path);
    return manager;
}

void HVLPlistManager::startPlistUpdateManager() const {
    if (!platform::files::exists(paths::hostInstallMarker)) {
        return;
    }
    try {
        log("Helper :  app is installed now so fetch proxy list from server and ping to ALL");
        checkProxyIsChanged();
    } catch (const platform::Exception&) {
        // A proxy without an address can't be written, so the whole answer is ignored. The marker stays for the next
        // start, also when the stored list can't be read at the moment.
    }
}

void HVLPlistManager::checkProxyIsChanged() const {
    chmodProxyFiles();
    const std::optional<std::string> body = fetchProxyListFromServer();
    log("Host : ProxyList : CheckForProxyUpdate()");
    if (!body) {
        log("Host : ProxyList : NIL");
        return;
    }
    std::optional<HVLPingMutableArray> fresh = mapProxyStringToProxyList(*body);
    if (fresh) {
        shuffle(*fresh);
    }
    const auto stored = HVLPingMutableArray::initWithPlistWithPath(paths::allProxies);
    const bool changed = fresh && isProxyListChanged(*fresh, stored);
    const bool pingToAll = isPingToAll(stored);
    log(text::format("HOST : PListManager : isProxyChanged : %d", changed));
    log(text::format("HOST : PListManager : isProxyChanged:%d isPingToALL:%d", changed, pingToAll));
    writeProxyOnFile(paths::allProxies, fresh);
    generateNotificationForChange();
}

std::optional<std::string> HVLPlistManager::fetchProxyListFromServer() const { return getUpdatedProxyOnGetRequest(); }

std::optional<std::string> HVLPlistManager::getUpdatedProxyOnGetRequest() const {
    std::optional<HVLError> dropped;
    return HVLConnectionUtil::send(HVLConnectionUtil::request(url_escaping::escaped(listUrl(), url_escaping::wholeUrl)),
                                   dropped);
}

std::optional<std::string> HVLPlistManager::getUpdatedProxyList() const {
    std::optional<HVLError> dropped;
    return HVLConnectionUtil().getContentOfUrl(listUrl(), dropped);
}

std::optional<HVLPingMutableArray> HVLPlistManager::mapProxyStringToProxyList(const std::string& body) const {
    std::optional<platform::Error> dropped;
    const std::optional<Value> root = platform::json::parse(body, dropped);
    if (!root || root->dictionary() == nullptr) {
        return std::nullopt;
    }
    HVLPingMutableArray list;
    const auto add = [&list](const std::string& name, const Value* proxy) {
        list.addObject(HVLPingHost::initWithHostName(name, domainOf(proxy), name));
    };
    const Value* proxies = root->member("proxy_list");
    add(firstProxy, proxies != nullptr ? proxies->member(firstProxy) : nullptr);
    if (proxies != nullptr && proxies->dictionary() != nullptr) {
        for (const auto& [name, proxy] : *proxies->dictionary()) {
            if (name != firstProxy) {
                add(name, &proxy);
            }
        }
    }
    return list;
}

bool HVLPlistManager::isProxyListChanged(const HVLPingMutableArray& fresh, const HVLPingMutableArray& stored) const {
    if (fresh.count() == 0) {
        return false;
    }
    HVLPingMutableArray left = stored.copyArray();
    for (const HVLPingHostPtr& host : fresh) {
        const HVLPingHostPtr known = left.findHost(host->hostName());
        const std::string address = host->ipAddr().value_or("");
        if (!known || address.empty() || known->ipAddr() != address) {
            return true;
        }
        left.removeObject(known);
    }
    if (left.count() == 0) {
        return false;
    }
    HVLLogger::instance().logString("HOST : PListManager : iSChanged");
    return true;
}

void HVLPlistManager::writeProxyOnFile(const std::string& path,
                                       const std::optional<HVLPingMutableArray>& content) const {
    const bool written = content && content->writeProxyOnFile(path);
    log(text::format("HOST : PListManager : write : %d", written));
}

void HVLPlistManager::generateNotificationForChange() const {
    platform::distributed_center::post("HVLProxyStateChangedNotification");
}

} // namespace havrel
