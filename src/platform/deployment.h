// What a deployment sets, read once from the environment when first asked for. From any thread.
#pragma once

#include <string>

namespace platform::deployment {

/// Service hosts, each `host` or `host:port`. The defaults are reserved names that resolve nowhere.
const std::string& webServiceHost();
const std::string& webSiteHost();
const std::string& webAppHost();
const std::string& testServer();
const std::string& apiHost();
const std::string& staticHost();

/// File of trust anchors in PEM form; empty for the system's own.
const std::string& trustAnchorFile();

/// Put in front of every absolute path that the daemon itself opens; empty in production, never ends in "/".
const std::string& root();

} // namespace platform::deployment
