// A network on which nothing is sent: requests are recorded and answered by the test.
#pragma once

#include "fakes/steered.h"
#include "platform/network.h"

namespace fakes::network {

using platform::network::Request;

inline Steered<std::vector<Request>> requests;
/// Answers requests on the caller's thread; unset, each fails with a transport error.
inline Steered<std::function<std::optional<std::string>(const Request&, std::optional<platform::Error>&)>> onRequest;
inline Steered<std::optional<std::vector<platform::network::InterfaceAddress>>> interfaces;
/// The types for URLs that begin with "http://" and with "https://".
inline Steered<std::pair<std::string, std::string>> proxyTypes;

/// Forgets the requests; there is no server, no interface and no proxy.
inline void reset() {
    requests({});
    onRequest({});
    interfaces({{}});
    proxyTypes({"kCFProxyTypeNone", "kCFProxyTypeNone"});
}

/// The same body for every request.
inline void answerWith(const std::string& body) {
    onRequest([body](const Request&, std::optional<platform::Error>&) { return body; });
}

} // namespace fakes::network
