#include "web/HVLUrl.h"

#include "foundation/deployment.h"

namespace havrel {

namespace {

namespace deployment = platform::deployment;

std::string address(const std::string& host, const std::string& path) { return "https://" + host + path; }

} // namespace

std::string HVLUrl::getStringUrl(const std::string& path) {
    return address(deployment::settings().webServiceHost, path);
}

std::string HVLUrl::getStringUrlBaseNET(const std::string& path) { return getStringUrl(path); }

URL HVLUrl::getUrl(const std::string& path) { return {getStringUrl(path)}; }

std::string HVLUrl::getStringUrlBaseCOM(const std::string& path) {
    return address(deployment::settings().webSiteHost, path);
}

std::string HVLUrl::getStringUrlBaseWeb(const std::string& path) {
    return address(deployment::settings().webAppHost, path);
}

std::string HVLUrl::getStringTestUrl(const std::string& path) {
    return address(deployment::settings().testServer, path);
}

std::string HVLUrl::getStringUrlBaseTest(const std::string& path) { return getStringTestUrl(path); }

} // namespace havrel
