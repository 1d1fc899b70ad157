// The built daemon on a machine of the test's own. Every test ends it with SIGTERM and checks how it ended.
#pragma once

#include "foundation/property_list.h"
#include "support/print_value.h"
#include "trial/support/bus_client.h"
#include "trial/support/machine.h"
#include "trial/support/wait.h"
#include "util/ProductPaths.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace e2e {

using Lines = std::vector<std::string>;

class DaemonTest : public testing::Test {
  protected:
    DaemonTest() { machine.tools.scriptInstantPing(); }

    void start() {
        trial::Environment environment = settings;
        environment.merge(machine.environment());
        daemon = std::make_unique<trial::DaemonProcess>(HAVREL_DAEMON, environment, machine.root.folder());
    }

    /// Starts it and waits until its start-up sequence is over.
    void startUp() {
        // An earlier start may have left its own line.
        const auto before = countLogged("HVLHelper :  Called");
        start();
        ASSERT_TRUE(trial::eventually([&] { return countLogged("HVLHelper :  Called") > before; }))
            << daemon->diagnostics();
    }

    void TearDown() override {
        ASSERT_EQ(daemon->terminate(), 0) << daemon->diagnostics();
        // Other threads may still log.
        EXPECT_THAT(machine.root.logged(trial::generalLog), testing::Contains("HavrelHelper : Called : Down"));
        EXPECT_THAT(daemon->diagnostics(), testing::Not(testing::HasSubstr("Sanitizer")));
    }

    /// How often the line stands in the host log.
    std::ptrdiff_t countLogged(const std::string& line) const {
        return std::ranges::count(machine.root.logged(trial::hostLog), line);
    }

    void setPreferences(const platform::Dictionary& preferences) const {
        machine.root.write(trial::hostPreferences, platform::property_list::toXml(preferences).value());
    }

    /// The host preferences, without the key that the pingers write at any time.
    platform::Dictionary preferences() const {
        const auto content = machine.root.propertyList(trial::hostPreferences);
        platform::Dictionary stored =
            content && content->dictionary() != nullptr ? *content->dictionary() : platform::Dictionary();
        stored.erase("HavrelPingToProxyDone");
        return stored;
    }

    /// Posts a command that runs `killall` twice and waits for that: the daemon is up and in its loop.
    void expectAnswer() {
        const std::size_t before = machine.tools.calls("killall").size();
        client.post("killAction");
        EXPECT_TRUE(trial::eventually([&] { return machine.tools.calls("killall").size() == before + 2; }))
            << daemon->diagnostics();
    }

    trial::Machine machine;
    trial::BusClient client{machine.bus.address()};
    /// What the daemon's environment has instead of the machine's.
    trial::Environment settings;
    std::unique_ptr<trial::DaemonProcess> daemon;
};

/// "METHOD host/path?query".
inline std::string described(const trial::WebRequest& request) {
    return request.method + ' ' + request.header("Host").value_or("") + request.target;
}

} // namespace e2e
