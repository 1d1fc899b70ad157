#include "proxy/HVLPingMutableArray.h"

#include "foundation/error.h"
#include "foundation/format.h"
#include "foundation/text.h"
#include "util/PropertyListFile.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace havrel {

namespace text = platform::text;
using platform::Value;

namespace {

// The keys of the file format.
constexpr const char* hostNameKey = "hostName";
constexpr const char* addressKey = "ipAddr";
constexpr const char* mappedNameKey = "mappedHostName";
constexpr const char* latencyKey = "pingTime";

/// Far more than the service lists. Others may write the files, and each record costs memory and a ping.
constexpr std::size_t recordLimit = 10'000;

bool answered(const HVLPingHostPtr& host) { return host->pingTime() != 0; }

HVLPingHostPtr recordFrom(const Value& entry) {
    const Value* latency = entry.member(latencyKey);
    return HVLPingHost::initWithHostName(entry.textMember(hostNameKey), entry.textMember(addressKey),
                                         entry.textMember(mappedNameKey),
                                         latency != nullptr ? std::optional<Value>(*latency) : std::nullopt);
}

Value required(const std::optional<std::string>& text, const char* key) {
    if (!text) {
        throw platform::Exception(std::string("proxy record without ") + key);
    }
    return *text;
}

HVLPingMutableArray fromPingString(const std::string& pings, const char* separator) {
    HVLPingMutableArray list;
    list.createArrayFromString(text::split(text::replaceAll(text::replaceAll(pings, "{", ""), "}", ""), separator));
    return list;
}

template <typename Predicate>
HVLPingHostPtr firstOf(const HVLPingMutableArray& list, const Predicate& matches) {
    const auto found = std::find_if(list.begin(), list.end(), matches);
    return found != list.end() ? *found : nullptr;
}

/// Two absent texts aren't equal here.
bool isSame(const std::optional<std::string>& field, const std::optional<std::string>& wanted) {
    return wanted && field == wanted;
}

void requireIndex(bool inRange) {
    if (!inRange) {
        throw platform::Exception("proxy list: index out of range");
    }
}

void requireObject(const HVLPingHostPtr& record) {
    if (!record) {
        throw platform::Exception("proxy list: no record given");
    }
}

} // namespace

HVLPingMutableArray HVLPingMutableArray::initWithPlistWithPath(const std::string& path) {
    HVLPingMutableArray list;
    const std::optional<Value> root = readPropertyList(path);
    if (!root || root->array() == nullptr) {
        return list;
    }
    for (const Value& entry : *root->array()) {
        if (entry.dictionary() == nullptr) {
            continue;
        }
        if (list.count() == recordLimit) {
            break;
        }
        list.addObject(recordFrom(entry));
    }
    return list;
}

HVLPingMutableArray HVLPingMutableArray::initWithPingStringWithCommaSeprator(const std::string& pings) {
    return fromPingString(pings, ",");
}

HVLPingMutableArray HVLPingMutableArray::initWithPingStringWithSpaceSeprator(const std::string& pings) {
    return fromPingString(pings, " ");
}

void HVLPingMutableArray::createArrayFromString(const std::vector<std::string>& pieces) {
    for (const std::string& piece : pieces) {
        const std::vector<std::string> parts = text::split(piece, ":");
        if (parts.size() >= 2) {
            addObject(HVLPingHost::initWithHostName(text::trim(parts[0], "\""), std::nullopt, std::nullopt,
                                                    Value(text::trim(parts[1], "\""))));
        }
    }
}

const HVLPingHostPtr& HVLPingMutableArray::objectAtIndex(std::size_t index) const {
    requireIndex(index < count());
    return mutableStorage_[index];
}

void HVLPingMutableArray::insertObject(HVLPingHostPtr record, std::size_t index) {
    requireObject(record);
    requireIndex(index <= count());
    mutableStorage_.insert(std::next(mutableStorage_.begin(), static_cast<std::ptrdiff_t>(index)), std::move(record));
}

void HVLPingMutableArray::removeObjectAtIndex(std::size_t index) { removeObjectsInRange(index, 1); }

void HVLPingMutableArray::removeObjectsInRange(std::size_t location, std::size_t length) {
    requireIndex(location <= count() && length <= count() - location);
    const auto first = std::next(mutableStorage_.begin(), static_cast<std::ptrdiff_t>(location));
    mutableStorage_.erase(first, std::next(first, static_cast<std::ptrdiff_t>(length)));
}

void HVLPingMutableArray::removeObject(const HVLPingHostPtr& record) { std::erase(mutableStorage_, record); }

void HVLPingMutableArray::addObject(HVLPingHostPtr record) { insertObject(std::move(record), count()); }

void HVLPingMutableArray::removeLastObject() {
    requireIndex(count() > 0);
    mutableStorage_.pop_back();
}

void HVLPingMutableArray::replaceObjectAtIndex(std::size_t index, HVLPingHostPtr record) {
    requireObject(record);
    requireIndex(index < count());
    mutableStorage_[index] = std::move(record);
}

HVLPingMutableArray::Storage HVLPingMutableArray::removeAllZeroPings(const HVLPingMutableArray& list) {
    Storage kept;
    std::copy_if(list.begin(), list.end(), std::back_inserter(kept), answered);
    return kept;
}

void HVLPingMutableArray::removeAllZeroPings() { mutableStorage_ = removeAllZeroPings(*this); }

void HVLPingMutableArray::sortPingArrayByMinimumPingTime() {
    // Ping workers may change latencies during the sort, so each one is read once.
    std::vector<std::pair<std::uint64_t, HVLPingHostPtr>> keyed;
    keyed.reserve(count());
    for (HVLPingHostPtr& host : mutableStorage_) {
        const std::uint64_t latency = host->pingTime();
        keyed.emplace_back(latency, std::move(host));
    }
    std::stable_sort(keyed.begin(), keyed.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    std::transform(keyed.begin(), keyed.end(), mutableStorage_.begin(),
                   [](auto& entry) { return std::move(entry.second); });
}

HVLPingHostPtr HVLPingMutableArray::getMinimumPingTimeHost() const { return firstOf(*this, answered); }

HVLPingHostPtr HVLPingMutableArray::findHost(const std::optional<std::string>& name) const {
    return firstOf(*this, [&](const HVLPingHostPtr& host) {
        return isSame(host->hostName(), name) || isSame(host->mappHostName(), name);
    });
}

HVLPingHostPtr HVLPingMutableArray::findHostByIP(const std::optional<std::string>& address) const {
    return firstOf(*this, [&](const HVLPingHostPtr& host) { return isSame(host->ipAddr(), address); });
}

HVLPingHostPtr HVLPingMutableArray::findHostByMappedName(const std::optional<std::string>& name) const {
    return firstOf(*this, [&](const HVLPingHostPtr& host) { return isSame(host->mappHostName(), name); });
}

HVLPingMutableArray HVLPingMutableArray::copyArray() const { return HVLPingMutableArray(mutableStorage_); }

std::size_t HVLPingMutableArray::countNoZeroPingTimeProxies() const {
    return static_cast<std::size_t>(std::count_if(begin(), end(), answered));
}

std::string HVLPingMutableArray::toJSONFormat() const {
    std::string pings;
    for (const HVLPingHostPtr& host : *this) {
        pings += host->toJSON() + " ";
    }
    return pings;
}

std::string HVLPingMutableArray::toRegisterJSONFormat() const {
    std::vector<std::string> items;
    items.reserve(count());
    for (const HVLPingHostPtr& host : *this) {
        items.push_back(host->toRegisterJSON());
    }
    return text::join(items, ",");
}

std::string HVLPingMutableArray::getPintableString() const {
    std::string line = "HostProxies State : ";
    for (const HVLPingHostPtr& host : *this) {
        line += text::format("%@:%lu,", host->hostName(), host->pingTime());
    }
    return line;
}

platform::Array HVLPingMutableArray::getPlistArray() const {
    platform::Array entries;
    entries.reserve(count());
    for (const HVLPingHostPtr& host : *this) {
        entries.emplace_back(
            platform::Dictionary{{hostNameKey, required(host->hostName(), hostNameKey)},
                                 {addressKey, required(host->ipAddr(), addressKey)},
                                 {mappedNameKey, required(host->mappHostName(), mappedNameKey)},
                                 {latencyKey, std::to_string(static_cast<std::int32_t>(host->pingTime()))}});
    }
    return entries;
}

bool HVLPingMutableArray::writeProxyOnFile(const std::string& path) const {
    return writePropertyList(path, getPlistArray());
}

} // namespace havrel
