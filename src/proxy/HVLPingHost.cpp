#include "proxy/HVLPingHost.h"

#include "foundation/format.h"
#include "foundation/numbers.h"
#include "foundation/text.h"
#include "foundation/unicode.h"
#include "platform/processes.h"

#include <string_view>
#include <vector>

namespace havrel {

namespace text = platform::text;

namespace {

std::uint64_t signExtended(std::int32_t latency) { return static_cast<std::uint64_t>(std::int64_t{latency}); }

/// The minimum from the summary line of the ping program, in milliseconds with decimals.
std::optional<std::string> minimumIn(std::string_view output) {
    const std::vector<std::string> parts = text::split(output, "min/avg/max/stddev =");
    if (parts.size() < 2) {
        return std::nullopt;
    }
    const std::vector<std::string> figures = text::split(parts[1], "/");
    if (figures.size() < 2 || figures[0].empty()) {
        return std::nullopt;
    }
    return figures[0];
}

/// Truncated, but less than a millisecond counts as 1, since 0 means unreachable.
std::uint64_t wholeMilliseconds(const std::string& minimum) {
    const float milliseconds = text::floatValue(minimum);
    return milliseconds > 0 && milliseconds < 1.0F ? 1 : static_cast<std::uint64_t>(text::integerValue(minimum));
}

} // namespace

HVLPingHostPtr HVLPingHost::initWithHostName(std::optional<std::string> hostName, std::optional<std::string> ipAddress,
                                             std::optional<std::string> mappedHostName) {
    auto host = std::make_shared<HVLPingHost>();
    host->setHostName(std::move(hostName));
    host->setIpAddr(std::move(ipAddress));
    host->setMappHostName(std::move(mappedHostName));
    return host;
}

HVLPingHostPtr HVLPingHost::initWithHostName(std::optional<std::string> hostName, std::optional<std::string> ipAddress,
                                             std::optional<std::string> mappedHostName,
                                             const std::optional<platform::Value>& pingTime) {
    auto host = initWithHostName(std::move(hostName), std::move(ipAddress), std::move(mappedHostName));
    host->pingTime_ = pingTime ? signExtended(pingTime->intValue()) : 0;
    return host;
}

HVLPingHostPtr HVLPingHost::copyWithZone() const { return initWithHostName(hostName(), ipAddr()); }

bool HVLPingHost::pingToProxyNow() {
    try {
        const std::optional<std::string> address = ipAddr();
        if (!address) {
            return false;
        }
        const std::optional<std::string> output = text::decodeUtf8(platform::processes::ping(*address));
        const std::optional<std::string> minimum = output ? minimumIn(*output) : std::nullopt;
        // The address may have been cleared while the ping ran.
        if (minimum && ipAddr()) {
            setPingTime(wholeMilliseconds(*minimum));
            return true;
        }
    } catch (...) {
        // A failed measurement keeps the old latency.
    }
    return false;
}

std::string HVLPingHost::toJSON() const {
    return text::format("%@:%ld", hostName(), static_cast<std::int64_t>(pingTime()));
}

std::string HVLPingHost::toRegisterJSON() const { return text::format(R"("%@":"%lu")", hostName(), pingTime()); }

HVLPingHostPtr HVLPingHost::addHostForSummetion(const HVLPingHost& other) const {
    const std::uint64_t own = pingTime();
    const std::uint64_t others = other.pingTime();
    if (own == 0 || others == 0) {
        return nullptr;
    }
    auto sum = initWithHostName(hostName(), ipAddr());
    sum->setPingTime(own + others);
    return sum;
}

} // namespace havrel
