#include "foundation/deployment.h"

#include "foundation/diagnostics.h"

#include <cstdlib>

namespace platform::deployment {

namespace {

/// Nullptr if the variable is not set or empty.
const char* valueOf(const char* variable) {
    const char* value = std::getenv(variable);
    return value != nullptr && *value != '\0' ? value : nullptr;
}

void read(const char* variable, std::string& setting) {
    if (const char* value = valueOf(variable)) {
        setting = value;
    }
}

Settings fromEnvironment() {
    Settings settings;
    read("HAVREL_WEB_SERVICE_HOST", settings.webServiceHost);
    read("HAVREL_WEB_SITE_HOST", settings.webSiteHost);
    read("HAVREL_WEB_APP_HOST", settings.webAppHost);
    read("HAVREL_TEST_SERVER", settings.testServer);
    read("HAVREL_API_HOST", settings.apiHost);
    read("HAVREL_STATIC_HOST", settings.staticHost);
    read("HAVREL_CA_FILE", settings.trustAnchorFile);
    read("HAVREL_ROOT", settings.root);
    while (settings.root.ends_with('/')) {
        settings.root.pop_back();
    }
    return settings;
}

} // namespace

const Settings& settings() {
    static const Settings settings = fromEnvironment();
    return settings;
}

void reportMissing() {
    std::string missing;
    for (const std::string variable : {"HAVREL_WEB_SERVICE_HOST", "HAVREL_API_HOST"}) {
        if (valueOf(variable.c_str()) == nullptr) {
            missing += (missing.empty() ? "" : ", ") + variable;
        }
    }
    if (!missing.empty()) {
        diagnostics::report("settings", "not set: " + missing + "; no request can be made there, see HavrelHelper(8)");
    }
}

} // namespace platform::deployment
