// Who the host is, on made-up machines, and what becomes of a disk that moved to another one.
#include "foundation/json.h"
#include "prefs/HVLUserPrefManager.h"
#include "unit/helper_test.h"
#include "web/CloneRule.h"

using namespace havrel;
using platform::Data;
using platform::Dictionary;
using platform::Value;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using Stored = std::optional<Value>;
using Text = std::optional<std::string>;
using Identity = HelperTest;
using Clone = support::CoreTest;

const Data addressA{"\x0a\x1b\x2c\x3d\x4e\x5f"};
const Data addressB{"\xff\xee\xdd\xcc\xbb\xaa"};

TEST_F(Identity, GetMACAddressFillsBuffersOfAnySize) {
    const HostIdentity::Interfaces none;
    const HostIdentity::Interfaces one = {{0, addressA}};

    struct {
        const char* name;
        std::size_t size;
        HostIdentity::Interfaces interfaces;
        int status;
        std::size_t cleared;
        std::string start; // of the buffer
    } const cases[] = {
        {"too small", 5, one, 5, 0, ""},
        {"no interface", 6, none, 5, 6, ""},
        {"the last address wins", 6, {{0, addressA}, {0, addressB}}, 0, 6, addressB.bytes},
        {"the last one has no address", 6, {{0, addressA}, {0, {}}}, 0, 6, addressA.bytes},
        {"the last one has no controller", 6, {{0, addressA}, {7, {}}}, 7, 6, addressA.bytes},
        {"a long property", 7, {{0, Data{"\1\2\3\4\5\6\7"}}}, 0, 7, "\1\2\3\4\5\6"},
        {"256 is cleared like 0", 256, one, 0, 0, addressA.bytes},
        {"263 is cleared like 7", 263, none, 5, 7, ""},
    };

    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        std::vector<std::uint8_t> buffer(row.size, 'x');
        EXPECT_EQ(HostIdentity().GetMACAddress(row.interfaces, buffer), row.status);
        std::string expected = std::string(row.cleared, '\0') + std::string(row.size - row.cleared, 'x');
        expected.replace(0, row.start.size(), row.start);
        EXPECT_EQ(std::string(buffer.begin(), buffer.end()), expected);
    }
}

TEST_F(Identity, IsSettledAtStartUp) {
    const std::string idA = "0a:1b:2c:3d:4e:5f";
    const Data zeros{std::string(6, '\0')};

    struct {
        const char* name;
        Text serialNumber;
        std::optional<Data> address; // of the primary interface
        Stored stored;
        Stored settled;
        bool isReplaced;
        Stored account = "ann";
        int searchStatus = 0;
    } const cases[] = {
        {"nothing stored", "C2", addressA, {}, idA, false},
        {"white space stored", "C2", addressA, " \u00a0", idA, false},
        {"an ID stored", "C2", addressB, idA, idA, false},
        {"zeros stored", "C2", addressA, "00:00", "C2", true},
        {"zeros stored without an account", "C2", addressA, "00:00", "00:00", false, {}},
        {"not only zeros stored", "C2", addressA, "00:00:00:00:00:01", "00:00:00:00:00:01", false},
        {"not even zeros stored", "C2", addressA, "::", "::", false},
        {"no address", "C2", {}, {}, "C2", true},
        {"an address of zeros", "C2", zeros, {}, "C2", true},
        {"a failed search", "C2", addressA, {}, "C2", true, "ann", 5},
        {"a serial number of zeros", "000-000", {}, {}, {}, true},
    };

    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        fakes::notifications::reset();
        fakes::machine::searchStatus(row.searchStatus);
        fakes::machine::interfaces({{0, row.address}});
        fakes::machine::serialNumber(row.serialNumber);
        hostPreferences().setIsUniqueIdChanged(false);
        hostPreferences().setUniqueID(row.stored);
        hostPreferences().setEUsername(row.account);
        hostPreferences().setSerialNumber(row.serialNumber);
        const Helper started;
        EXPECT_EQ(HVLUserPrefManager::sharedHVLUserPrefManager().viewerPref().uniqueID(), row.settled);
        EXPECT_EQ(hostPreferences().uniqueID(), row.settled);
        EXPECT_EQ(hostPreferences().isUniqueIdChanged(), row.isReplaced);
        const auto told = testing::FieldsAre("uniqueIdChanged", "", std::nullopt, 3U);
        EXPECT_THAT(fakes::notifications::posts(), Contains(told).Times(row.isReplaced ? 1 : 0));
    }
}

TEST(CloneRule, ComparesTheSerialNumbers) {
    struct {
        const char* name;
        Text serialNumber;
        Stored saved;
        Installation installation;
    } const cases[] = {
        {"the machine has none", {}, "C2", Installation::unidentified},
        {"none saved", "C2", {}, Installation::fresh},
        {"an empty one saved", "C2", "", Installation::fresh},
        {"equal", "C2", "C2", Installation::unchanged},
        {"different", "C2", "C3", Installation::cloned},
        {"different in case", "C2", "c2", Installation::cloned},
        {"a saved number is no text", "2", 2, Installation::cloned},
    };

    for (const auto& row : cases) {
        EXPECT_EQ(installationOf(row.serialNumber, row.saved), row.installation) << row.name;
    }
}

TEST(CloneRule, CutsDescriptionsFrom46Characters) {
    const std::string e44 = support::repeated("é", 44);

    struct {
        std::string name;
        std::string distinct;
    } const cases[] = {
        {"", "_12345"},
        {"Office-Mac", "Office-Mac_12345"},
        {e44 + "é", e44 + "é_12345"},
        {e44 + "éé", e44 + "_12345"},
    };

    for (const auto& row : cases) {
        EXPECT_EQ(describeClone(row.name, 12345), row.distinct);
    }
}

TEST_F(Clone, NeedsASerialNumber) {
    HostIdentity().validateCloneCaseWithSerialNumber();
    EXPECT_THAT(takeLog(hostLog), ElementsAre("Helper : Unable to get system serial number"));
}

TEST_F(Clone, TakesANewIdentity) {
    const std::string byAddress = "Helper : Cloned case - update machineId with System MAC Address : ";
    const std::string bySerial = "Helper : Cloned case - update machineId with System Serial number : ";
    const std::string idA = "0a:1b:2c:3d:4e:5f";

    struct {
        const char* name;
        std::optional<Data> address;
        Stored uniqueId;
        Stored newUniqueId;
        std::string line; // of the log
    } const cases[] = {
        {"the address came along", addressA, idA, "C2", bySerial + "C2"},
        {"no address", {}, "old", "C2", byAddress + "C2"},
        {"no ID saved", addressA, {}, idA, byAddress + idA},
    };

    fakes::machine::serialNumber("C2");
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        fakes::machine::interfaces({{0, row.address}});
        hostPreferences().setSerialNumber("C1");
        hostPreferences().setUniqueID(row.uniqueId);
        hostPreferences().setHostID("token");
        hostPreferences().setLoggedinhostIDS("tokens");
        hostPreferences().setUpdateFlag12AfterConfigure(false);
        HostIdentity().validateCloneCaseWithSerialNumber();
        EXPECT_THAT(takeLog(hostLog),
                    ElementsAre("Helper : System Serial Number C2", "Helper : Saved Serial Number C1",
                                "Helper : Saved serial number doesnt match with System serial number", row.line));
        EXPECT_EQ(hostPreferences().uniqueID(), row.newUniqueId);
        EXPECT_EQ(hostPreferences().serialNumber(), "C2");
        EXPECT_EQ(hostPreferences().macSystemModel(), "Model1,1");
        EXPECT_EQ(hostPreferences().hostID(), "");
        EXPECT_EQ(hostPreferences().loggedinhostIDS(), platform::Array());
        EXPECT_TRUE(hostPreferences().updateFlag12AfterConfigure());
        EXPECT_EQ(hostPreferences().hostDecription(), "Test Computer");
        hostPreferences().setHostDecription(std::nullopt);
    }
    EXPECT_THAT(fakes::network::requests(), testing::IsEmpty()) << "the host service is off";
}

TEST_F(Clone, DescribesItselfWithAFiveDigitNumber) {
    fakes::machine::serialNumber("C2");
    for (const std::string number : {"10000", "99999"}) {
        fakes::machine::randomBelow([&](std::uint32_t bound) { return number == "10000" ? 0 : bound - 1; });
        hostPreferences().setSerialNumber("C1");
        hostPreferences().setHostDecription("D");
        HostIdentity().validateCloneCaseWithSerialNumber();
        EXPECT_EQ(hostPreferences().hostDecription(), "D_" + number);
        EXPECT_EQ(takeLog(hostLog).back(), "Helper : Cloned case - update Host Description : D_" + number);
    }
}

TEST_F(Clone, RegistersWithTheServiceEnabled) {
    const std::string registered =
        R"({"status":"OK","message":"{\"error\":0,\"access_token\":\"a b&\",\"proxy_topic\":\"P\"}"})";
    fakes::machine::serialNumber("C/2");
    fakes::network::onRequest(
        [&](const auto& request, auto&) { return request.url.ends_with("configureClients") ? registered : "DONE"; });
    hostPreferences().setSerialNumber("C1");
    hostPreferences().setIsServiceEnabled(true);
    hostPreferences().setViewerToken("v&");
    hostPreferences().setProxyTopic("t&");
    hostPreferences().setAppPassword("p&");
    hostPreferences().setHostDecription("d&");
    hostPreferences().setHavrelVersion("7.6&");
    hostPreferences().setTrustToken("s&");
    fakes::machine::randomBelow([](std::uint32_t) { return 0; });
    HostIdentity().validateCloneCaseWithSerialNumber();
    const auto requests = fakes::network::requests();
    ASSERT_EQ(requests.size(), 2U);
    EXPECT_EQ(requests[0].url, "https://api.test/hvlnew/api/config/v1/configureClients");
    EXPECT_EQ(requests[0].body, "token=v%26&topic_id=t%26&app_pwd=p%26&id=C%2F2&host_description=d%26_10000"
                                "&os=10.15.7&version=7.6&&trust_token=s%26");
    EXPECT_EQ(requests[0].timeout, std::chrono::seconds(60));
    EXPECT_EQ(requests[1].url, "https://service.test/cgi-bin/hvl/v1/update_host_info.cgi");
    EXPECT_EQ(requests[1].body, "token=a%20b%26&host_description=d%26_10000&offline=0");
    EXPECT_EQ(requests[1].timeout, std::chrono::seconds(60));
    EXPECT_THAT(takeLog(hostLog),
                testing::IsSupersetOf({"Helper : Cloned case - update Host New", "Clone : Update host Info : DONE"}));
}

TEST_F(Clone, StoresWhatTheServiceHandsOut) {
    const auto success = [](const std::string& message) {
        return platform::json::prettyPrinted(Dictionary{{"status", "OK"}, {"message", message}}).value();
    };

    struct {
        const char* name;
        Text answer;
        Stored token;
        Stored topic;
    } const cases[] = {
        {"texts", success(R"({"error":0,"access_token":"T","proxy_topic":"P"})"), "T", "P"},
        {"a number and null", success(R"({"error":"0","access_token":7,"proxy_topic":null})"), 7, {}},
        {"containers", success(R"({"error":[1],"access_token":{"a":null},"proxy_topic":[1]})"), {}, {}},
        {"no JSON inside", success("no JSON"), {}, {}},
        {"a message that is no text", R"({"status":"OK","message":{"error":1}})", {}, {}},
        {"a failure", R"({"status":"FAIL","message":"{\"error\":1}"})", {}, {}},
        {"a list outside", R"([{"status":"OK"}])", {}, {}},
        {"no JSON", "<html>", {}, {}},
        {"no answer", {}, "old", "old"},
    };

    hostPreferences().setLoggedInUsername("u");
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        fakes::network::onRequest([&](const auto& request, auto&) {
            return request.url.ends_with("configureClients") ? row.answer : "Error: no host";
        });
        hostPreferences().setHostID("old");
        hostPreferences().setProxyTopicHost("old");
        hostPreferences().setLoggedinhostIDS("old");
        HVLCloneHostRegistration().registerNewHostForClone();
        EXPECT_EQ(hostPreferences().hostID(), row.token);
        EXPECT_EQ(hostPreferences().proxyTopicHost(), row.topic);
        const Value perUser = platform::Array{row.token ? Dictionary{{"u", *row.token}} : Dictionary{}};
        EXPECT_EQ(hostPreferences().loggedinhostIDS(), row.answer ? perUser : Value("old"));
        const auto log = takeLog(hostLog);
        ASSERT_EQ(log.size(), 3U);
        EXPECT_THAT(log[0], HasSubstr(row.token == "T" ? "/update_host_info.cgi?token=T&" : "Clone : Update Host"));
        EXPECT_THAT(log[1], HasSubstr("Domain=com.Dravex.HVLErrorDomain Code=0 \"no host\""));
        EXPECT_EQ(log[2], "Clone : Update host Info : ");
    }
    EXPECT_THAT(takeLog(generalLog), Contains("Get Host token response string  is OK").Times(5));
}

TEST_F(Clone, StopsWhenItsDescriptionIsRefused) {
    hostPreferences().setHostID("old");
    for (const std::string error : {"1", "\\\"2\\\""}) {
        fakes::network::answerWith(R"({"status":"OK","message":"{\"error\":)" + error +
                                   R"(,\"access_token\":\"T\"}"})");
        HVLCloneHostRegistration().registerNewHostForClone();
        EXPECT_EQ(hostPreferences().hostID(), "old");
        EXPECT_THAT(takeLog(generalLog),
                    ElementsAre("Configure client for new registration: (null)",
                                "Get Host token response string  is OK",
                                HasSubstr("/configureClients?token=&topic_id=&app_pwd=&id=&host_description=&os="),
                                HasSubstr("    status = OK;")));
        EXPECT_THAT(takeLog(hostLog), ElementsAre("Service: ConfigureClient: Host description already exist."));
    }
}
