#include "fakes/fake_deployment.h"

#include "foundation/deployment.h"

static platform::deployment::Settings current{
    .webServiceHost = "service.test",
    .webSiteHost = "site.test",
    .webAppHost = "app.test:8443",
    .testServer = "192.0.2.1",
    .apiHost = "api.test",
    .staticHost = "static.test",
    .trustAnchorFile = "",
    .root = "",
};

void fakes::deployment::setRoot(const std::string& root) { current.root = root; }

void fakes::deployment::setTrustAnchorFile(const std::string& file) { current.trustAnchorFile = file; }

const platform::deployment::Settings& platform::deployment::settings() { return current; }
