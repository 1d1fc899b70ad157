// A network on which nothing is sent: requests are recorded and answered by the test.
#pragma once

#include "fakes/steered.h"
#include "platform/network.h"

namespace fakes::network {

using platform::network::Request;

/// By the URL's scheme.
struct ProxyTypes {
    std::string http = "kCFProxyTypeNone";
    std::string https = "kCFProxyTypeNone";
};

inline Steered<std::vector<Request>> requests;
/// Answers requests on the caller's thread. Unset, each fails with a transport error.
inline Steered<std::function<std::optional<std::string>(const Request&, std::optional<platform::Error>&)>> onRequest;
inline Steered<std::optional<std::vector<platform::network::InterfaceAddress>>> interfaces;
inline Steered<bool> hasDefaultRoute;
inline Steered<ProxyTypes> proxyTypes;

/// Forgets the requests. There is no server, no interface, no route and no proxy.
inline void reset() {
    requests({});
    onRequest({});
    interfaces({{}});
    hasDefaultRoute(false);
    proxyTypes({});
}

/// Answers every request with that body.
inline void answerWith(const std::string& body) {
    onRequest([body](const Request&, std::optional<platform::Error>&) { return body; });
}

} // namespace fakes::network
