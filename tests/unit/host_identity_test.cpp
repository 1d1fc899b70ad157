// Who the host is, from the facts of made-up machines, and what becomes of a disk that moved to another one.
#include "foundation/json.h"
#include "foundation/unicode.h"
#include "prefs/HVLUserPrefManager.h"
#include "unit/helper_test.h"

namespace fs = std::filesystem;
namespace text = platform::text;
using namespace havrel;
using platform::Dictionary;
using platform::Value;
using testing::Contains;
using testing::HasSubstr;
using Stored = std::optional<Value>;
using Identity = HelperTest;
using Clone = support::CoreTest;

TEST_F(Identity, IsSettledAtStartUp) {
    const std::string built = "00:1b:2c:3d:4e:5f", dock = "00:1b:2c:3d:4e:60";
    // clang-format off
    const std::tuple<std::string, std::string, const char*> cards[] = {
        {"eth0", "00:1B:2C:3D:4E:5F", "device"}, {"eth1", dock, "device"}, {"eth2", "00:00:00:00:00:00", "device"},
        {"ethl", "52:54:00:00:00:01", "device"}, {"wifi", dock, "phy80211"}, {"brdg", dock, "bridge"},
        {"veth", "02:42:ac:11:00:02", "duplex"}};
    const std::tuple<const char*, std::string, std::string, Stored, Stored> rows[] = {
        // what, its cards (the last is the way out, "none" is none), its serial number, the stored ID, the ID then
        {"no interface",              "",               "C2",             {},        "C2"},
        {"wireless only",             "wifi",           "C2",             {},        "C2"},
        {"one wired",                 "eth0 wifi",      "C2",             " \u00a0", built},
        {"a dock, the way out",       "eth0 eth1",      "C2",             "",        dock},
        {"a dock, no way out",        "eth1 eth0 none", "C2",             "",        built},
        {"a dock comes later",        "eth0 eth1",      "C2",             built,     built},
        {"a local address",           "ethl wifi",      "C2",             {},        "52:54:00:00:00:01"},
        {"beside a maker's",          "eth0 ethl",      "C2",             {},        built},
        {"beside a bridge",           "eth0 brdg",      "C2",             {},        built},
        {"a container's",             "veth",           "C2",             {},        "02:42:ac:11:00:02"},
        {"a container's, no way out", "veth none",      "C2",             {},        "C2"},
        {"address of zeros",          "eth2",           "C2",             {},        "C2"},
        {"nothing usable",            "eth2",           "Default string", {},        {}},
        {"stored zeros",              "eth0",           "C2",             "00:00",   "C2"},
        {"no account",                "eth0",           "C2",             "00:00",   "00:00"},
        {"not only zeros",            "eth0",           "C2",             "0:0:1",   "0:0:1"},
        {"not even zeros",            "eth0",           "C2",             "::",      "::"}};
    // clang-format on
    for (const auto& [what, present, serialNumber, stored, uniqueId] : rows) {
        SCOPED_TRACE(what);
        fs::remove_all(root.at("/sys"));
        fs::remove(root.at(paths::hostSupport + "/.HostPref.plist"));
        root.write("/sys/class/dmi/id/product_serial", serialNumber);
        root.write("/proc/net/route", text::suffix(present, 4) + " 0 010200C0 0003 0 0 100 0\n");
        for (const auto& [name, address, kind] : cards) {
            const bool isPresent = present.find(name) != std::string::npos;
            const std::string card = (isPresent ? "/sys/class/net/" : "/unplugged/") + name + "/";
            root.write(card + "type", "1");
            root.write(card + "address", address);
            root.write(card + kind, "");
        }
        hostPreferences().setUniqueID(stored);
        hostPreferences().setEUsername(what == std::string("no account") ? Stored() : "ann");
        fakes::notifications::reset();
        const Helper started;
        EXPECT_EQ(HVLUserPrefManager::sharedHVLUserPrefManager().viewerPref().uniqueID(), uniqueId);
        EXPECT_EQ(hostPreferences().uniqueID(), uniqueId);
        const bool isReplaced = uniqueId.value_or("C2") == Value("C2");
        EXPECT_EQ(hostPreferences().isUniqueIdChanged(), isReplaced);
        const auto told = testing::FieldsAre("uniqueIdChanged", "", std::nullopt, 3U);
        EXPECT_THAT(fakes::notifications::posts(), Contains(told).Times(isReplaced ? 1 : 0));
    }
}

TEST_F(Clone, IsKnownByItsSerialNumberAndTakesANewIdentity) {
    const std::string mac = "0a:1b:2c:3d:4e:5f", found = "System Serial Number C2; ";
    const std::string saved = found + "Saved Serial Number ", named = "; Cloned case - update Host Description : ";
    const std::string matches = "; Saved serial number matches with System serial number";
    const std::string differs = "; Saved serial number doesnt match with System serial number; ";
    const std::string byAddress = "Cloned case - update machineId with System MAC Address : ";
    const std::string bySerial = "Cloned case - update machineId with System Serial number : C2" + named;
    const std::string differing = saved + "c" + differs, e44 = support::repeated("é", 44);
    const std::tuple<Stored, Stored, Stored, std::string, std::string, std::string> rows[] = {
        // saved number, ID, description; the machine's number, address; log, number, ID, description then ("#": random)
        {"c", "old", "D", "", mac, "Unable to get system serial number/c/old/D"},
        {"", {}, "D", "C2", mac, found + "No Saved serial number exists: New installation/C2/(null)/D"},
        {"C2", {}, "D", "C2", mac, saved + "C2" + matches + "/C2/(null)/D"},
        {"c", "old", "D", "C2", mac, differing + byAddress + mac + named + "D_#/C2/" + mac + "/D_#"},
        {"c", mac, "", "C2", mac, differing + bySerial + "_#/C2/C2/_#"},
        {"c", "C2", e44 + "é", "C2", "", differing + bySerial + e44 + "é_#/C2/C2/" + e44 + "é_#"},
        {"c", "C2", e44 + "éé", "C2", "", differing + bySerial + e44 + "_#/C2/C2/" + e44 + "_#"},
        {7, 7, 7, "C2", "", saved + "7" + differs + byAddress + "C2/C2/C2/Test Computer"}};
    root.write("/sys/class/net/eth0/type", "1");
    root.write("/sys/class/net/eth0/device", "");
    auto& stored = hostPreferences();
    for (const auto& [serialNumber, id, description, number, address, expected] : rows) {
        stored.setSerialNumber(serialNumber);
        stored.setUniqueID(id);
        stored.setHostDecription(description);
        stored.setHostID("token");
        root.write("/sys/class/dmi/id/product_serial", number);
        root.write("/sys/class/net/eth0/address", address);
        HostIdentity().validateCloneCaseWithSerialNumber();
        const auto log = text::replaceAll(text::join(takeLog(hostLog), "; "), "Helper : ", "");
        const auto after = text::format("/%@/%@/%@", stored.serialNumber(), stored.uniqueID(), stored.hostDecription());
        EXPECT_EQ(log + after, text::replaceAll(expected, "#", text::suffix(after, 5)));
        EXPECT_EQ(stored.hostID(), expected.find(differs) == std::string::npos ? "token" : "");
    }
    EXPECT_THAT(fakes::network::requests(), testing::IsEmpty());
}

TEST_F(Clone, StoresWhatTheServiceHandsOut) {
    const auto success = [](const std::string& message) {
        return platform::json::prettyPrinted(Dictionary{{"status", "OK"}, {"message", message}}).value();
    };
    const std::tuple<std::optional<std::string>, Stored, Stored> rows[] = {
        // the answer, token and topic then
        {success(R"({"error":0,"access_token":"T","proxy_topic":"P"})"), "T", "P"},
        {success(R"({"error":"0","access_token":7,"proxy_topic":null})"), 7, {}},
        {success(R"({"error":[1],"access_token":{"a":null},"proxy_topic":[1]})"), {}, {}},
        {success(R"({"error":1,"access_token":"T"})"), "refused", "refused"},
        {success(R"({"error":"1"})"), "refused", "refused"},
        {success(R"([{"error":1}])"), {}, {}},
        {success("no JSON"), {}, {}},
        {R"({"status":"OK","message":{"error":1}})", {}, {}}, // no text
        {R"({"status":"OK"})", {}, {}},
        {R"({"status":"FAIL","message":"{\"error\":1}"})", {}, {}},
        {R"([{"status":"OK"}])", {}, {}},
        {"<html>", {}, {}},
        {"", {}, {}},
        {{}, "old", "old"}}; // nothing at all
    hostPreferences().setLoggedInUsername("u");
    for (const auto& [answer, token, topic] : rows) {
        SCOPED_TRACE(answer.value_or("nothing"));
        fakes::network::onRequest([&given = answer](const auto& request, auto&) {
            return request.url.ends_with("Clients") ? given : "Error: no host";
        });
        const Stored before = token == "refused" ? "refused" : "old";
        hostPreferences().setHostID(before);
        hostPreferences().setProxyTopicHost(before);
        hostPreferences().setLoggedinhostIDS(before);
        HVLCloneHostRegistration().registerNewHostForClone();
        EXPECT_EQ(hostPreferences().hostID(), token);
        EXPECT_EQ(hostPreferences().proxyTopicHost(), topic);
        const Value perUser = platform::Array{token ? Dictionary{{"u", *token}} : Dictionary{}};
        EXPECT_EQ(hostPreferences().loggedinhostIDS(), token == before ? *before : perUser);
    }
    const auto general = takeLog(generalLog), host = takeLog(hostLog);
    EXPECT_THAT(general, Contains("Get Host token response string  is OK").Times(9));
    EXPECT_THAT(general, Contains(HasSubstr("/configureClients?token=&topic_id=&app_pwd=&id=&host_")).Times(2));
    EXPECT_THAT(general, Contains(HasSubstr("    status = OK;")).Times(2));
    EXPECT_THAT(host, Contains("Service: ConfigureClient: Host description already exist.").Times(2));
    EXPECT_THAT(host, Contains(HasSubstr("/update_host_info.cgi?token=T&host_description=&offline=0")).Times(1));
    EXPECT_THAT(host, Contains(HasSubstr("Domain=com.Dravex.HVLErrorDomain Code=0 \"no host\"")).Times(12));
}
