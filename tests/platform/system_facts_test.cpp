#include "foundation/format.h"
#include "foundation/text.h"
#include "platform/clock.h"
#include "platform/device_registry.h"
#include "platform/network.h"
#include "platform/session.h"
#include "platform/system_info.h"
#include "support/root_test.h"

#include <tuple>
#include <unistd.h>

namespace {

using namespace platform;

/// Of a machine made up of files.
using SystemFacts = support::RootTest;

TEST_F(SystemFacts, TheBestDefaultRouteTellsThePrimaryInterface) {
    for (const std::string card : {"/sys/class/net/a/", "/sys/class/net/b/"}) {
        root.write(card + "type", "1\n");
        root.write(card + "address", "00:1b:2c:3d:4e:5f\n");
        root.write(card + "device", "");
    }
    const std::string none(32, '0');
    const std::string way = "\t00000000\t010200C0\t0003\t0\t0\t%d\t00000000\n";
    const std::string sixthWay = " 00 " + none + " 00 " + none + " 00000064 00000001 00000000 00000003     b\n";
    const std::tuple<std::string, std::string, std::string> rows[] = {
        {"", "", "a"},
        {"b\t000200C0\t0\t0001\t0\t0\t0\t00FFFFFF\nb\t0000\n\n", "fe80" + none.substr(4) + sixthWay, "a"},
        {text::format("Iface\tDestination\nb" + way, 100), "", "b"},
        {text::format("a" + way + "b" + way, 200, 100), "", "b"},
        {"", none + sixthWay, "b"}};
    auto matching = *device_registry::matching("IOEthernetInterface");
    matching["IOPropertyMatch"] = Dictionary{{"IOPrimaryInterface", true}};
    for (const auto& [table, sixthTable, primary] : rows) {
        root.write("/proc/net/route", table);
        root.write("/proc/net/ipv6_route", sixthTable);
        EXPECT_EQ(network::primaryInterface(), primary) << table;
        std::vector<device_registry::Entry> entries;
        EXPECT_EQ(device_registry::matchingServices(matching, entries), 0);
        EXPECT_THAT(entries, testing::ElementsAre(testing::Property(&device_registry::Entry::path, primary)));
    }
}

TEST_F(SystemFacts, TheSerialNumberIsTheFirstUsableOne) {
    root.write("/sys/class/dmi/id/board_serial", "None");
    root.write("/sys/firmware/devicetree/base/serial-number", std::string("1000000abc\0", 11));
    for (const std::string serial : {" C02X \n", "", "0", "To Be Filled By O.E.M.\n", "000-000\n"}) {
        root.write("/sys/class/dmi/id/product_serial", serial);
        EXPECT_EQ(device_registry::property({"IOPlatformExpertDevice", ""}, "IOPlatformSerialNumber"),
                  Value(serial.starts_with(" C") ? "C02X" : "1000000abc"));
    }
}

TEST_F(SystemFacts, ModelAndNameComeFromTheRoot) {
    root.write("/sys/class/dmi/id/product_name", "Model 1\n");
    root.write("/etc/hostname", "box\n");
    EXPECT_EQ(system_info::hardwareModel(), "Model 1");
    EXPECT_EQ(network::computerName(), "box");
    root.write("/etc/machine-info", "PRETTY_HOSTNAME=\"Ann's \\\"Box\\\"\"\n");
    EXPECT_EQ(network::computerName(), "Ann's \"Box\"");
    EXPECT_GE(system_info::systemVersion().major, 5);
    EXPECT_EQ(system_info::bundlePath(), std::filesystem::read_symlink("/proc/self/exe").parent_path());
}

TEST_F(SystemFacts, TheTimestampIsLocalTime) {
    const auto hourIn = [](const char* zone) {
        setenv("TZ", zone, 1);
        const std::string now = clock::timestamp();
        EXPECT_THAT(now, testing::MatchesRegex("20[0-9][0-9]-[01][0-9]-[0-3][0-9] [0-2][0-9]:[0-5][0-9]:[0-6][0-9]"));
        return std::stoi(now.substr(11, 2));
    };
    // The hour may end between the two calls.
    EXPECT_THAT((24 + hourIn("XST-7") - hourIn("UTC")) % 24, testing::AnyOf(6, 7, 8));
    unsetenv("TZ");
}

TEST_F(SystemFacts, HomeFoldersStandInTheUserDatabase) {
    root.write("/etc/passwd", "broken\nann:x:1000:1000:Ann:/Users/ann:/bin/sh\nbad:x:-1:0::/bad:/bin/sh\n"
                              "nohome:x:" +
                                  std::to_string(geteuid()) + ":1001:::/bin/sh\n");
    EXPECT_EQ(session::homeFolder("ann"), "/Users/ann");
    EXPECT_EQ(session::currentHomeFolder(), "/");
    for (const std::string user : {"", "nobody", "nohome", "broken", "bad", "an", "ann:x"}) {
        EXPECT_EQ(session::homeFolder(user), std::nullopt) << user;
    }
    fakes::deployment::setRoot("");
    EXPECT_EQ(session::homeFolder("root"), "/root");
    EXPECT_EQ(session::homeFolder("no such user"), std::nullopt);
}

TEST_F(SystemFacts, TheConsoleUserIsWhoseDesktopIsActive) {
    const auto userOf = [&](const std::string& session, const std::string& facts) {
        root.write("/run/systemd/seats/seat0", "# private\nIS_SEAT0=1\nACTIVE=" + session + "\nACTIVE_UID=7\n");
        root.write("/run/systemd/sessions/c2", text::replaceAll(facts, " ", "\n"));
        return session::consoleUser();
    };
    root.write("/etc/passwd", "ann:x:1000:1000:Ann:/Users/ann:/bin/sh\n");
    EXPECT_EQ(session::consoleUser(), std::nullopt) << "no seat";
    EXPECT_EQ(userOf("c2", "UID=1000 USER=x CLASS=user TYPE=wayland"), "ann");
    EXPECT_EQ(userOf("../sessions/c2", "UID=1000 CLASS=user TYPE=x11"), std::nullopt);
    for (const char* facts :
         {"UID=1000 CLASS=user TYPE=tty", "UID=1000 CLASS=greeter TYPE=x11", "UID=1000 SUBCLASS=user TYPE=x11",
          "UID=4242 CLASS=user TYPE=x11", "CLASS=user TYPE=x11"}) {
        EXPECT_EQ(userOf("c2", facts), std::nullopt) << facts;
    }
    fakes::deployment::setRoot("");
    static_cast<void>(session::consoleUser()); // whoever sits here, if there is a login manager at all
}

} // namespace
