#include "trial/live/road.h"

#include "util/ProductPaths.h"

#include <algorithm>
#include <set>

namespace trial {

namespace {

constexpr std::size_t bestProxies = 50;

std::size_t distinctNames(const std::vector<ProxyEntry>& entries) {
    std::set<std::string> names;
    for (const ProxyEntry& entry : entries) {
        names.insert(entry.hostName);
    }
    return names.size();
}

bool isRanked(const std::vector<ProxyEntry>& entries) {
    return std::is_sorted(entries.begin(), entries.end(),
                          [](const auto& a, const auto& b) { return a.pingTime < b.pingTime; }) &&
           std::all_of(entries.begin(), entries.end(), [](const auto& entry) { return entry.pingTime > 0; });
}

} // namespace

void Road::notification(const std::string& name) {
    changed_ = changed_ || name == "HVLProxyStateChangedNotification";
    bestFound_ = bestFound_ || (changed_ && name == "BestThreeProxyFoundNotification");
}

std::vector<Road::Step> Road::steps() const {
    const auto all = root_.proxies(havrel::paths::allProxies).value_or(std::vector<ProxyEntry>());
    const auto best = root_.proxies(havrel::paths::proxies).value_or(std::vector<ProxyEntry>());
    return {
        {"the list was fetched: AllProxies.plist holds " + std::to_string(distinctNames(all)) + " of " +
             std::to_string(listedProxies_) + " proxies",
         all.size() == listedProxies_ && distinctNames(all) == listedProxies_},
        {"HVLProxyStateChangedNotification was posted", changed_},
        {"the fastest were chosen: Proxies.plist holds " + std::to_string(best.size()) + " answered proxies, ranked",
         best.size() == std::min(bestProxies, listedProxies_) && isRanked(best)},
        {"BestThreeProxyFoundNotification was posted after it", bestFound_},
        {"the install marker is deleted", !root_.has(havrel::paths::hostInstallMarker)},
    };
}

bool Road::isGone() const {
    const auto all = steps();
    return std::all_of(all.begin(), all.end(), [](const Step& step) { return step.done; });
}

} // namespace trial
