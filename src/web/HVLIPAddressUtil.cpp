#include "web/HVLIPAddressUtil.h"

#include "foundation/deployment.h"
#include "foundation/format.h"
#include "foundation/json.h"
#include "foundation/unicode.h"
#include "logging/HVLLogger.h"
#include "platform/network.h"
#include "web/AnswerMember.h"
#include "web/HVLConnectionUtil.h"

#include <algorithm>
#include <chrono>
#include <iterator>

namespace havrel {

namespace {

namespace network = platform::network;
namespace text = platform::text;

constexpr int attempts = 2;

/// The address in the service's answer; nullopt, and a line in the log, if it holds none.
std::optional<std::string> reportedAddress(const std::string& answer) {
    std::optional<HVLError> error;
    const auto object = platform::json::parse(answer, error);
    if (!object) {
        HVLLogger::instance().logString(text::format("Response for getRemoteIP:%@", error));
        return std::nullopt;
    }
    auto address = platform::textOf(storableMember(object, "remoteIp"));
    if (!address) {
        HVLLogger::instance().logString("HavrelHelper : Failed to GET IP getRemoteIP");
    }
    return address;
}

/// Looks at the low 8 bits only, as the product does: other characters that share them pass for digits or dots.
bool passesForDigitOrDot(char16_t character) {
    const unsigned low = character & 0xFF;
    return low == '.' || (low >= '0' && low <= '9');
}

bool isDottedQuad(const std::string& address) {
    const std::u16string characters = text::utf16(address);
    return std::ranges::all_of(characters, passesForDigitOrDot) && std::ranges::count(characters, u'.') == 3 &&
           address != "127.0.0.1";
}

} // namespace

std::string HVLIPAddressUtil::externalIPAddress() {
    for (int attempt = 0; attempt < attempts; ++attempt) {
        network::Request request =
            HVLConnectionUtil::request("https://" + platform::deployment::settings().apiHost + "/hvlnew/getRemoteIP");
        request.timeout = std::chrono::seconds(5);
        std::optional<HVLError> ignored;
        const auto answer = HVLConnectionUtil::send(request, ignored);
        const auto address = answer ? reportedAddress(*answer) : std::nullopt;
        if (address) {
            return *address;
        }
    }
    const auto local = getIP4Add();
    return local.empty() ? fallbackAddress : local.front();
}

std::optional<std::vector<std::string>> HVLIPAddressUtil::getIPAddress() {
    const auto interfaces = network::interfaceAddresses();
    if (!interfaces) {
        return std::nullopt;
    }
    const std::string loopback = network::loopbackInterface();
    std::vector<std::string> addresses;
    for (const auto& entry : *interfaces) {
        if (entry.ipv4 && entry.isUp && entry.interfaceName != loopback) {
            addresses.push_back(*entry.ipv4);
        }
    }
    return addresses;
}

std::vector<std::string> HVLIPAddressUtil::getIP4Add() {
    return filterIpV4Address(getIPAddress().value_or(std::vector<std::string>{}));
}

std::vector<std::string> HVLIPAddressUtil::filterIpV4Address(const std::vector<std::string>& addresses) {
    std::vector<std::string> filtered;
    std::ranges::copy_if(addresses, std::back_inserter(filtered), isDottedQuad);
    return filtered;
}

bool HVLIPAddressUtil::isValidIP4Address(const std::string& address) { return network::isIPv4Address(address); }

bool HVLIPAddressUtil::isValidIP6Address(const std::string& address) { return network::isIPv6Address(address); }

std::string HVLIPAddressUtil::getSystemIPAddress() {
    const auto interfaces = network::interfaceAddresses().value_or(std::vector<network::InterfaceAddress>{});
    const std::string primary = network::primaryInterface();
    std::string address = "error";
    for (const auto& entry : interfaces) {
        if (entry.ipv4 && entry.interfaceName == primary) {
            address = *entry.ipv4;
        }
    }
    return address;
}

} // namespace havrel
