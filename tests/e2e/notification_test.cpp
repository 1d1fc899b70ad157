#include "e2e/daemon_test.h"

#include <systemd/sd-bus.h>

namespace e2e {

TEST_F(DaemonTest, DropsMalformedNotificationsWithOneLineEach) {
    startUp();
    const auto lines = [&] { return std::ranges::count(daemon->diagnostics(), '\n'); };
    const auto before = lines();
    client.perform([](sd_bus& bus) {
        const auto emit = [&](const char* types, auto... values) {
            EXPECT_GE(sd_bus_emit_signal(&bus, "/com/Dravex/DistributedNotifications",
                                         "com.Dravex.DistributedNotifications", "Posted", types, "killAction",
                                         values...),
                      0);
        };
        emit("s");
        emit("ssu", "", 3);
        emit("ssasu", "", 1, "a", 3);
    });
    client.post("killAction", {}, {{"text", std::string(std::size_t{1} << 20U, 'x')}});
    expectAnswer();
    EXPECT_EQ(machine.tools.calls("killall").size(), 2U);
    EXPECT_EQ(lines() - before, 4) << daemon->diagnostics();
}

} // namespace e2e
