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

/// A latency as stored in files and texts, 32 bits, widened with its sign.
std::uint64_t widened(std::int32_t latency) { return static_cast<std::uint64_t>(std::int64_t{latency}); }

/// The first figure behind the summary's title: the minimum, in milliseconds with decimals.
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

/// Truncated; what is under a millisecond counts as one, for 0 means unreachable.
std::uint64_t wholeMilliseconds(const std::string& minimum) {
    const float milliseconds = text::floatValue(minimum);
    return milliseconds > 0 && milliseconds < 1.0F ? 1 : static_cast<std::uint64_t>(text::integerValue(minimum));
}

} // namespace

HVLPingHostPtr HVLPingHost::initWithHostName(Text hostName, Text ipAddress, Text mappedHostName) {
    auto host = std::make_shared<HVLPingHost>();
    host->hostName_ = std::move(hostName);
    host->ipAddr_ = std::move(ipAddress);
    host->mappHostName_ = std::move(mappedHostName);
    return host;
}

HVLPingHostPtr HVLPingHost::initWithHostName(Text hostName, Text ipAddress, Text mappedHostName,
                                             const std::optional<platform::Value>& pingTime) {
    auto host = initWithHostName(std::move(hostName), std::move(ipAddress), std::move(mappedHostName));
    host->pingTime_ = pingTime ? widened(pingTime->intValue()) : 0;
    return host;
}

HVLPingHostPtr HVLPingHost::copyWithZone() const { return initWithHostName(hostName(), ipAddr()); }

void HVLPingHost::pingToProxyNow() {
    try {
        const Text address = ipAddr();
        if (!address) {
            return;
        }
        const Text output = text::decodeUtf8(platform::processes::ping(*address));
        const Text minimum = output ? minimumIn(*output) : std::nullopt;
        // The address may have been taken away while the ping ran.
        if (minimum && ipAddr()) {
            setPingTime(wholeMilliseconds(*minimum));
        }
    } catch (...) {
        // A failed measurement leaves the latency as it was.
    }
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
