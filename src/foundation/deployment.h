// What a deployment sets, read from the environment once, when first asked for. Thread-safe.
#pragma once

#include <string>

namespace platform::deployment {

struct Settings {
    // Service hosts, each `host` or `host:port`. The defaults are reserved names that resolve nowhere.
    std::string webServiceHost = "service.havrel.example";
    std::string webSiteHost = "www.havrel.example";
    std::string webAppHost = "app.havrel.example";
    std::string testServer = "192.0.2.1";
    std::string apiHost = "api.havrel.example";
    std::string staticHost = "static.havrel.example";

    /// File of trust anchors in PEM form; empty for the system's own.
    std::string trustAnchorFile;

    /// Put in front of every absolute path that the daemon itself opens, but `trustAnchorFile`, which is opened as
    /// given; empty in production, never ends in "/".
    std::string root;
};

const Settings& settings();

/// Reports in one line which variables are not set though no request can be made without them.
void reportMissing();

} // namespace platform::deployment
