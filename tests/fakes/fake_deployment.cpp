#include "fakes/fake_deployment.h"

#include "platform/deployment.h"

using namespace platform;

static std::string currentRoot, currentTrustAnchorFile;
static const std::string webService = "service.test", webSite = "site.test", webApp = "app.test:8443";
static const std::string test = "192.0.2.1", api = "api.test", statics = "static.test";

void fakes::deployment::setRoot(const std::string& root) { currentRoot = root; }

void fakes::deployment::setTrustAnchorFile(const std::string& file) { currentTrustAnchorFile = file; }

const std::string& deployment::root() { return currentRoot; }

const std::string& deployment::trustAnchorFile() { return currentTrustAnchorFile; }

const std::string& deployment::webServiceHost() { return webService; }

const std::string& deployment::webSiteHost() { return webSite; }

const std::string& deployment::webAppHost() { return webApp; }

const std::string& deployment::testServer() { return test; }

const std::string& deployment::apiHost() { return api; }

const std::string& deployment::staticHost() { return statics; }
