#include "daemon/DeviceList.h"

namespace havrel {

using platform::Dictionary;
using platform::Value;

namespace {

/// Adds the device if it has a token.
void addRegistered(Dictionary& devices, const char* name, const std::optional<Value>& token) {
    if (token && *token != Value("")) {
        devices[name] = Dictionary{{"token", *token}};
    }
}

} // namespace

Dictionary deviceList(const std::optional<Value>& hostToken, const std::optional<Value>& viewerToken,
                      const std::optional<Value>& clientId, const std::optional<Value>& clientSignature) {
    Dictionary regular;
    addRegistered(regular, "host", hostToken);
    addRegistered(regular, "viewer", viewerToken);
    Dictionary instant;
    if (clientId && clientSignature) {
        instant["host"] = Dictionary{{"id", *clientId}, {"client_signature", *clientSignature}};
    }
    return {{"regular", regular}, {"instant", instant}};
}

} // namespace havrel
