#include "foundation/deployment.h"

#include <cstdlib>

namespace platform::deployment {

namespace {

void read(const char* variable, std::string& setting) {
    const char* value = std::getenv(variable);
    if (value != nullptr && *value != '\0') {
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

} // namespace platform::deployment
