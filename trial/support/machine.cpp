#include "trial/support/machine.h"

#include "foundation/format.h"
#include "foundation/json.h"
#include "foundation/value.h"

namespace trial {

Proxies numberedProxies(std::size_t count, const std::string& network) {
    Proxies proxies;
    for (std::size_t number = 1; number <= count; ++number) {
        proxies.emplace_back(platform::text::format("P%lu", number), platform::text::format("%@.%lu", network, number));
    }
    return proxies;
}

WebAnswer listing(const Proxies& proxies) {
    platform::Dictionary list;
    for (const auto& [name, address] : proxies) {
        list[name] = platform::Dictionary{{"domain", address}};
    }
    return {.body = platform::json::prettyPrinted(platform::Dictionary{{"proxy_list", list}}).value(),
            .headers = {{"Content-Type", "application/json"}}};
}

namespace {

/// A `systemsetup` that keeps the timers it is told to set, in files.
void scriptSleepTimers(const std::filesystem::path& folder, const StandInTools& tools) {
    writeFile(folder / "computersleep", "10\n");
    writeFile(folder / "displaysleep", "5\n");
    tools.script("systemsetup", "cd " + shellQuoted(folder) + "\n" + R"(timer=${1#-?et}
case $timer in
computersleep) label='Computer Sleep' ;;
displaysleep) label='Display Sleep' ;;
*) exit 64 ;;
esac
case $1 in -set*) echo "$2" > "$timer" ;; esac
read -r minutes < "$timer"
case $minutes in
*[!0-9]*) echo "$label: $minutes" ;;
*) echo "$label: after $minutes minutes" ;;
esac)");
}

} // namespace

Machine::Machine(CertificateKind certificate)
    : authority(root.folder() / "authority.pem")
    , service(authority, certificate)
    , tools(root.folder())
    , bus(root.folder()) {
    bus.start();
    scriptSleepTimers(root.folder(), tools);
}

std::string Machine::apiHost() const { return "localhost:" + std::to_string(service.port()); }

Environment Machine::environment() const {
    return {{"DBUS_SYSTEM_BUS_ADDRESS", bus.address()},
            {"HAVREL_CA_FILE", authority.file()},
            {"HAVREL_ROOT", root.path()},
            {"PATH", tools.searchPath()},
            {"HAVREL_WEB_SERVICE_HOST", service.host()},
            {"HAVREL_API_HOST", apiHost()},
            {"HAVREL_STATIC_HOST", "static.invalid"},
            {"HAVREL_WEB_SITE_HOST", "site.invalid"},
            {"HAVREL_WEB_APP_HOST", "app.invalid"},
            {"HAVREL_TEST_SERVER", "test.invalid"}};
}

} // namespace trial
