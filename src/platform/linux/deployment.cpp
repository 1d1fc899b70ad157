#include "platform/deployment.h"

#include <cstdlib>

namespace platform::deployment {

namespace {

std::string setting(const char* variable, const char* builtIn) {
    const char* value = std::getenv(variable);
    return value != nullptr && *value != '\0' ? value : builtIn;
}

std::string rootSetting() {
    std::string root = setting("HAVREL_ROOT", "");
    while (!root.empty() && root.back() == '/') {
        root.pop_back();
    }
    return root;
}

} // namespace

const std::string& webServiceHost() {
    static const std::string host = setting("HAVREL_WEB_SERVICE_HOST", "service.havrel.example");
    return host;
}

const std::string& webSiteHost() {
    static const std::string host = setting("HAVREL_WEB_SITE_HOST", "www.havrel.example");
    return host;
}

const std::string& webAppHost() {
    static const std::string host = setting("HAVREL_WEB_APP_HOST", "app.havrel.example");
    return host;
}

const std::string& testServer() {
    static const std::string host = setting("HAVREL_TEST_SERVER", "192.0.2.1");
    return host;
}

const std::string& apiHost() {
    static const std::string host = setting("HAVREL_API_HOST", "api.havrel.example");
    return host;
}

const std::string& staticHost() {
    static const std::string host = setting("HAVREL_STATIC_HOST", "static.havrel.example");
    return host;
}

const std::string& trustAnchorFile() {
    static const std::string file = setting("HAVREL_CA_FILE", "");
    return file;
}

const std::string& root() {
    static const std::string path = rootSetting();
    return path;
}

} // namespace platform::deployment
