#include "foundation/error.h"
#include "platform/device_registry.h"
#include "platform/network.h"
#include "platform/session.h"
#include "platform/system_info.h"
#include "support/root_test.h"

#include <algorithm>
#include <sys/resource.h>
#include <unistd.h>

namespace {

using namespace platform;

struct Card {
    std::string name;
    std::string address;
    std::string mark; // what its folder holds that tells its kind
    std::string bus = "pci";
    std::string removable = "fixed";
};

class SystemFacts : public support::RootTest {
  protected:
    void install(const Card& card) const {
        const std::string folder = "/sys/class/net/" + card.name + "/";
        root.write(folder + "type", "1\n");
        root.write(folder + "address", card.address + "\n");
        root.write(folder + card.mark, "");
        if (card.mark.starts_with("device")) {
            root.write(folder + "device/removable", card.removable + "\n");
            std::filesystem::remove(root.at(folder + "device/subsystem"));
            std::filesystem::create_directory_symlink("../../../bus/" + card.bus, root.at(folder + "device/subsystem"));
        }
    }
};

TEST_F(SystemFacts, TheBestCardIsThePrimaryInterface) {
    const Card first{"eth0", "00:1B:2C:3D:4E:5F", "device/class"};
    const Card usb{"ddd0", "00:1b:2c:3d:4e:62", "device/class", "usb"};
    const Card dock{"ccc0", "00:1b:2c:3d:4e:63", "device/class", "pci", "removable"};
    const Card local{"abc0", "52:54:00:00:00:01", "device/class"};
    const Card wireless{"aaa0", "00:1b:2c:3d:4e:61", "phy80211"};
    const Card bridge{"br0", "00:1b:2c:3d:4e:61", "bridge"};
    const Card container{"veth", "02:42:ac:11:00:02", "duplex"};

    struct {
        const char* name;
        std::vector<Card> cards;
        std::string defaultRoute; // the interface that holds it
        std::string primary;
    } const cases[] = {
        {"wireless with the default route", {wireless, first}, "aaa0", "eth0"},
        {"a local address beside a maker's", {local, first}, "abc0", "eth0"},
        {"a bridge with the default route", {first, bridge}, "br0", "eth0"},
        {"USB with the default route", {first, usb}, "ddd0", "eth0"},
        {"USB beside a local address", {local, usb}, "ddd0", "abc0"},
        {"USB beside a container's", {usb, container}, "veth", "ddd0"},
        {"a dock with the default route", {first, dock}, "ccc0", "eth0"},
    };

    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        std::filesystem::remove_all(root.at("/sys"));
        std::ranges::for_each(row.cards, [this](const Card& card) { install(card); });
        root.write("/proc/net/route", row.defaultRoute + " 0 010200C0 0003 0 0 100 0\n");
        EXPECT_EQ(network::primaryInterface(), row.primary);
    }
}

TEST_F(SystemFacts, TheBestDefaultRouteTellsEqualCardsApart) {
    struct {
        const char* name;
        std::string routes;
        std::string primary;
    } const cases[] = {
        {"the lower metric",
         "a\t00000000\t010200C0\t0003\t0\t0\t200\t00000000\nb\t00000000\t010200C0\t0003\t0\t0\t100\t00000000\n", "b"},
        {"a route that is down", "b\t00000000\t010200C0\t0002\t0\t0\t0\t00000000\n", "a"},
    };

    install({"a", "00:1b:2c:3d:4e:5f", "device/class"});
    install({"b", "00:1b:2c:3d:4e:60", "device/class"});
    for (const auto& row : cases) {
        root.write("/proc/net/route", row.routes);
        EXPECT_EQ(network::primaryInterface(), row.primary) << row.name;
    }
}

TEST_F(SystemFacts, TheRegistryGivesThePrimaryInterfacesAddress) {
    std::vector<device_registry::EthernetInterface> interfaces;
    install({"eth0", "0A:1B:2C:3D:4E:5F", "device/class"});
    EXPECT_EQ(device_registry::findPrimaryInterfaces(interfaces), device_registry::success);
    EXPECT_EQ(interfaces.at(0).address, Data{"\x0a\x1b\x2c\x3d\x4e\x5f"});
    for (const std::string text : {"0a:1b:2c:3d:4e", "00a:1b:2c:3d:4e:5f", "0a:1b:2c:3d:4e:5g"}) {
        install({"eth0", text, "device/class"});
        device_registry::findPrimaryInterfaces(interfaces);
        EXPECT_EQ(interfaces.at(0).address, std::nullopt) << text;
    }
}

TEST_F(SystemFacts, TheSystemIsAsOldAsItsFirstProcess) {
    struct {
        const char* name;
        std::string kernel;
        std::string startTicks; // 100 a second
        std::optional<std::chrono::seconds> uptime;
    } const cases[] = {
        {"a machine", "61.20 99.00\n", "7", std::chrono::seconds(61)},
        {"a container", "9000.20 99.00\n", "899000", std::chrono::seconds(10)},
        {"a container with a clock of its own", "10.20 99.00\n", "899000", std::chrono::seconds(10)},
        {"unknown", "", "7", {}},
    };

    for (const auto& row : cases) {
        root.write("/proc/uptime", row.kernel);
        root.write("/proc/1/stat", "1 (a) (b) S 0 1 1 0 -1 4 0 0 0 0 0 0 0 0 20 0 1 0 " + row.startTicks + " 0\n");
        EXPECT_EQ(system_info::uptime(), row.uptime) << row.name;
    }
}

TEST_F(SystemFacts, PlaceholdersAreNoSerialNumbers) {
    root.write("/sys/class/dmi/id/board_serial", "None");
    root.write("/sys/firmware/devicetree/base/serial-number", std::string("1000000abc\0", 11));
    for (const std::string placeholder :
         {"", "XX:XX", "\xff\xff\xff\xff", "to be filled by O.E.M", "O.E.M.", "INVALID", "(none)", "TBD", "Standard",
          "EVAL", "Undefined", "NotApplicable", "MB-1234567890", "FEFEFEFE-FEFE-FEFE-FEFE-FEFEFEFEFEFE", "SerialNumber",
          "123456", "BSS-0123456789", "00020003-0004-0005-0006-000700080009"}) {
        root.write("/sys/class/dmi/id/product_serial", placeholder + "\n");
        EXPECT_EQ(device_registry::serialNumber(), "1000000abc") << placeholder;
    }
}

TEST_F(SystemFacts, FactsHoldNothingThatCannotBeStored) {
    for (const std::string file :
         {"/sys/class/dmi/id/product_serial", "/sys/class/dmi/id/product_name", "/etc/hostname"}) {
        root.write(file, " C\a0\uFFFE2\uFFFF X\xe9\t\n");
    }
    EXPECT_EQ(device_registry::serialNumber(), "C02 X\uFFFD");
    EXPECT_EQ(system_info::hardwareModel(), "C02 X\uFFFD");
    EXPECT_EQ(network::computerName(), "C02 X\uFFFD");
}

TEST_F(SystemFacts, AreNotTakenForAbsentWhenDescriptorsRunOut) {
    root.write("/sys/class/dmi/id/product_serial", "C02");
    rlimit usual{};
    getrlimit(RLIMIT_NOFILE, &usual);
    const rlimit none{0, usual.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    EXPECT_THROW(device_registry::serialNumber(), Exception);
    EXPECT_THROW(session::users(), Exception);
    setrlimit(RLIMIT_NOFILE, &usual);
}

TEST_F(SystemFacts, AMachineWithoutDmiHasADeviceTree) {
    root.write("/sys/firmware/devicetree/base/model", std::string("Board 4 Model B\0", 16));
    EXPECT_EQ(system_info::hardwareModel(), "Board 4 Model B");
}

TEST_F(SystemFacts, HomeFoldersStandInTheUserDatabase) {
    root.write("/etc/passwd", "broken\nbad:x:-1:0::/bad:/bin/sh\nnohome:x:" + std::to_string(geteuid()) +
                                  ":1001:::/bin/sh\nann:x:1000:1000:Ann:/Users/ann:/bin/sh\n");
    EXPECT_EQ(session::homeFolder("ann"), "/Users/ann");
    for (const std::string user : {"nohome", "broken", "bad", "an", "ann:x"}) {
        EXPECT_EQ(session::homeFolder(user), std::nullopt) << user;
    }
}

TEST_F(SystemFacts, OnlyADesktopHasAConsoleUser) {
    const auto consoleUser = [this](const std::string& facts) {
        root.write("/run/systemd/sessions/c2", facts);
        return session::consoleUser();
    };
    root.write("/etc/passwd", "ann:x:1000:1000:Ann:/Users/ann:/bin/sh\n");
    root.write("/run/systemd/seats/seat0", "# private\nIS_SEAT0=1\nACTIVE=c2\nACTIVE_UID=7\n");
    EXPECT_EQ(consoleUser("UID=1000\nUSER=x\nCLASS=user\nTYPE=wayland\n"), "ann");
    for (const char* facts :
         {"UID=1000\nCLASS=user\nTYPE=tty\n", "UID=1000\nCLASS=greeter\nTYPE=x11\n",
          "UID=1000\nSUBCLASS=user\nTYPE=x11\n", "UID=4242\nCLASS=user\nTYPE=x11\n", "CLASS=user\nTYPE=x11\n"}) {
        EXPECT_EQ(consoleUser(facts), std::nullopt) << facts;
    }
}

} // namespace
