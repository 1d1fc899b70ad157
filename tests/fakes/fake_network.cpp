#include "fakes/fake_network.h"

using namespace platform;

std::optional<std::string> network::sendSynchronousRequest(const Request& request, std::optional<Error>& error) {
    fakes::network::requests.add(request);
    if (const auto server = fakes::network::onRequest()) {
        return server(request, error);
    }
    error = Error{"NSURLErrorDomain", -1004, "Could not connect to the server."};
    return std::nullopt;
}

void network::endRequests() {}

std::optional<std::vector<network::InterfaceAddress>> network::interfaceAddresses() {
    return fakes::network::interfaces();
}

bool network::hasDefaultRoute() { return fakes::network::hasDefaultRoute(); }

std::string network::loopbackInterface() { return "lo"; }

std::string network::primaryInterface() { return "eth0"; }

bool network::isIPv4Address(const std::string& text) { return text == "1.2.3.4"; }

bool network::isIPv6Address(const std::string& text) { return text == "::1"; }

std::string network::proxyType(const std::string& url) {
    const auto types = fakes::network::proxyTypes();
    return url.starts_with("https://") ? types.https : types.http;
}

std::string network::computerName() { return "Test Computer"; }
