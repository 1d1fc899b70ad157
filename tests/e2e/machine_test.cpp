#include "e2e/daemon_test.h"

namespace e2e {

using platform::Array;
using platform::Dictionary;

namespace {

const std::string configurePath = "/hvlnew/api/config/v1/configureClients";

class MachineTest : public DaemonTest {
  protected:
    MachineTest() { std::filesystem::remove(machine.root.at(havrel::paths::hostInstallMarker)); }

    void restart() {
        ASSERT_EQ(daemon->terminate(), 0) << daemon->diagnostics();
        std::filesystem::remove(machine.root.at(trial::hostLog));
        machine.service.reset();
        machine.service.answer(configurePath, answer);
        startUp();
    }

    void move(const std::string& from, const std::string& to) const {
        std::filesystem::rename(machine.root.at(from), machine.root.at(to));
    }

    std::ptrdiff_t countInGeneralLog(const std::string& line) const {
        return std::ranges::count(machine.root.logged(trial::generalLog), line);
    }

    /// Moves a folder that belongs to no product to and fro until the watcher has noticed. By then it has handled what
    /// was moved before.
    void expectWatched(const std::string& trash = "/Users/ann/.Trash") const {
        const std::string line = "objc - Auto uninstaller ";
        const auto before = countInGeneralLog(line);
        machine.root.installApplication("Other");
        EXPECT_TRUE(trial::eventually([&] {
            move("/Applications/Other.app", trash + "/Other.app");
            move(trash + "/Other.app", "/Applications/Other.app");
            return countInGeneralLog(line) > before;
        }));
    }

    std::size_t uninstalls() const { return machine.tools.calls("sh").size(); }

    trial::WebAnswer answer{
        .body = R"({"status":"OK","message":"{\"error\":0,\"access_token\":\"T&2\",\"proxy_topic\":\"P2\"}"})"};
};

} // namespace

TEST_F(MachineTest, CloneRegistersOnceAsANewHost) {
    Dictionary expected{{"EUsername", "ann@example.org"}, {"isServiceEnabled", true}, {"hostID", "T1"},
                        {"HavrelVersion", "7.1"},         {"ComputerSleep", "7"},     {"DisplaySleep", "8"},
                        {"HostDescription", "Büro & Co"}};
    setPreferences(expected);
    startUp();
    EXPECT_EQ(countLogged("Helper : No Saved serial number exists: New installation"), 1);
    expected.merge(Dictionary{{"serialNumber", "TRIAL-0001"}, {"uniqueId", "02:00:5e:10:00:01"}});
    EXPECT_EQ(preferences(), expected);
    EXPECT_TRUE(machine.service.requests().empty());

    machine.root.write("/sys/class/dmi/id/product_serial", "TRIAL-0002\n");
    restart();
    const std::string description = preferences().at("HostDescription").description();
    EXPECT_THAT(description, testing::MatchesRegex("Büro & Co_[1-9][0-9][0-9][0-9][0-9]"));
    // The interface is the same, so only the serial number tells the machines apart.
    Dictionary clone{{"serialNumber", "TRIAL-0002"},   {"uniqueId", "TRIAL-0002"},
                     {"HostDescription", description}, {"hostID", "T&2"},
                     {"ProxyTopicHost", "P2"},         {"macSystemModel", "Trial machine"},
                     {"loggedInHostIDS", Array()},     {"updateFlag12AfterConfigure", true}};
    clone.merge(expected);
    EXPECT_EQ(preferences(), clone);
    const auto requests = machine.service.requests();
    ASSERT_EQ(requests.size(), 2U);
    EXPECT_EQ(described(requests[0]), "POST " + machine.apiHost() + configurePath);
    EXPECT_EQ(described(requests[1]), "POST " + machine.service.host() + "/cgi-bin/hvl/v1/update_host_info.cgi");

    restart();
    EXPECT_EQ(countLogged("Helper : Saved serial number matches with System serial number"), 1);
    EXPECT_TRUE(machine.service.requests().empty());
    EXPECT_EQ(preferences(), clone);
}

TEST_F(MachineTest, TrashedProductIsUninstalledOncePerMove) {
    machine.root.logIn("ann");
    const std::string host = "/Applications/HavrelHost.app";
    machine.root.installApplication("HavrelHost");
    machine.root.installApplication("HavrelViewer");
    startUp();
    expectWatched();
    move("/Applications/HavrelViewer.app", "/Users/ann/.Trash/HavrelViewer.app");
    for (const std::size_t round : {1U, 2U}) {
        move(host, "/Users/ann/.Trash/HavrelHost.app");
        EXPECT_TRUE(client.waitForCount("UNInstallAction", round));
        move("/Users/ann/.Trash/HavrelHost.app", host);
        EXPECT_TRUE(trial::eventually([&] { return uninstalls() == round + 1; })) << uninstalls();
    }
    expectWatched();
    expectAnswer();
    const auto calls = machine.tools.calls("sh");
    EXPECT_EQ(std::ranges::count(calls, "sh '/Library/Application Support/HVLViewForMac/Uninstaller'",
                                 &trial::ToolCall::line),
              1);
    EXPECT_EQ(std::ranges::count(calls, "sh '/Library/Application Support/HVLHostForMac/Uninstaller' 1",
                                 &trial::ToolCall::line),
              2);
    EXPECT_THAT(machine.root.read("/Library/Application Support/HVLForMac/HavrelView7.log"),
                testing::HasSubstr("Viewer unintall called from helper on move to trash command"));
    EXPECT_EQ(client.countOf("UNInstallAction"), 2U);
}

TEST_F(MachineTest, ProductInADesktopsTrashIsUninstalled) {
    const std::string trash = "/home/ann/.local/share/Trash/files";
    machine.root.logIn("ann");
    std::filesystem::remove_all(machine.root.at("/Users"));
    machine.root.write("/etc/passwd", "ann:x:1000:1000::/home/ann:/bin/bash\n");
    machine.root.write("/run/systemd/sessions/c1", "UID=1000\nCLASS=user\nTYPE=wayland\n");
    std::filesystem::create_directories(machine.root.at(trash));
    machine.root.installApplication("HavrelHost");
    startUp();
    expectWatched(trash);
    move("/Applications/HavrelHost.app", trash + "/HavrelHost.app");
    EXPECT_TRUE(client.waitForCount("UNInstallAction", 1));
}

} // namespace e2e
