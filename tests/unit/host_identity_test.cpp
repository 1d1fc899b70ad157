// Who the host is, on made-up machines, and what becomes of a disk that moved to another one.
#include "foundation/json.h"
#include "prefs/HVLUserPrefManager.h"
#include "unit/helper_test.h"
#include "util/SystemStart.h"
#include "web/CloneRule.h"

#include <array>

using namespace havrel;
using namespace std::chrono_literals;
using namespace std::string_literals;
using namespace platform;
using testing::ElementsAre;
using testing::HasSubstr;
using Stored = std::optional<Value>;
using Identity = HelperTest;
using Clone = support::CoreTest;
using StartOfSystem = support::CoreTest;

const Data addressA{"\x0a\x1b\x2c\x3d\x4e\x5f"};
const Data addressB{"\xff\xee\xdd\xcc\xbb\xaa"};

TEST_F(Identity, GetMACAddressFillsBuffersOfAnySize) {
    struct {
        const char* name;
        std::size_t size;
        HostIdentity::Interfaces interfaces;
        int status;
        std::string filled;
    } const cases[] = {
        {"too small", 5, {{0, addressA}}, 5, "xxxxx"},
        {"no interface", 6, {}, 5, std::string(6, '\0')},
        {"the last address wins", 6, {{0, addressA}, {0, addressB}, {0, {}}}, 0, addressB.bytes},
        {"a long property", 7, {{0, Data{"\1\2\3\4\5\6\7"}}}, 0, "\1\2\3\4\5\6\0"s},
        {"256 is cleared like 0", 256, {{0, addressA}}, 0, addressA.bytes + std::string(250, 'x')},
    };

    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        std::vector<std::uint8_t> buffer(row.size, 'x');
        EXPECT_EQ(HostIdentity().GetMACAddress(row.interfaces, buffer), row.status);
        EXPECT_EQ(std::string(buffer.begin(), buffer.end()), row.filled);
    }
}

TEST_F(Identity, IsSettledAtStartUp) {
    const std::string idA = "0a:1b:2c:3d:4e:5f";

    struct {
        const char* name;
        std::optional<Data> address; // of the primary interface
        Stored stored;
        Stored settled;
        bool isReplaced;
        Stored account = "ann";
        int searchStatus = 0;
    } const cases[] = {
        {"nothing stored", addressA, {}, idA, false},
        {"an ID stored", addressB, idA, idA, false},
        {"zeros stored", addressA, "00:00", "C2", true},
        {"zeros stored without an account", addressA, "00:00", "00:00", false, {}},
        {"no address", {}, {}, "C2", true},
        {"a failed search", addressA, {}, "C2", true, "ann", 5},
    };

    fakes::machine::serialNumber("C2");
    hostPreferences().setSerialNumber("C2");
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        fakes::notifications::reset();
        fakes::machine::searchStatus(row.searchStatus);
        fakes::machine::interfaces({{0, row.address}});
        hostPreferences().setIsUniqueIdChanged(false);
        hostPreferences().setUniqueID(row.stored);
        hostPreferences().setEUsername(row.account);
        const Helper started;
        EXPECT_EQ(hostPreferences().uniqueID(), row.settled);
        EXPECT_EQ(hostPreferences().isUniqueIdChanged(), row.isReplaced);
        const auto told = testing::FieldsAre("uniqueIdChanged", "", std::nullopt, 3U);
        EXPECT_THAT(fakes::notifications::posts(), testing::Contains(told).Times(row.isReplaced ? 1 : 0));
    }
}

TEST_F(Identity, WaitsForAnInterfaceWhileTheSystemStarts) {
    struct {
        const char* name;
        HostIdentity::Interfaces interfaces;
        std::chrono::seconds uptime;
        Stored settled;
    } const cases[] = {
        {"none yet", {}, 59s, {}},
        {"one appears", {{0, addressA}}, 3s, "0a:1b:2c:3d:4e:5f"},
        {"none appears", {}, 60s, "00:00:00:00:00:00"},
    };

    fakes::network::hasDefaultRoute(true);
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        fakes::machine::interfaces({});
        fakes::machine::uptime(2s);
        hostPreferences().setUniqueID(std::nullopt);
        const Helper started;
        EXPECT_EQ(hostPreferences().uniqueID(), std::nullopt);
        fakes::machine::interfaces(row.interfaces);
        fakes::machine::uptime(row.uptime);
        fakes::clock::advance();
        fakes::clock::advance();
        EXPECT_EQ(hostPreferences().uniqueID(), row.settled);
    }
}

TEST_F(StartOfSystem, IsOverAtTheSecondLookInARow) {
    constexpr std::array isExpected = {false, true, false, false};
    std::size_t looks = 0;
    std::size_t doneAt = 0;
    const DeferredWork work([&] { return isExpected.at(looks++); }, [&] { doneAt = looks; });
    for (std::size_t look = 1; look <= isExpected.size(); ++look) {
        fakes::clock::advance();
    }
    EXPECT_EQ(doneAt, 4U);
}

TEST(CloneRule, ComparesTheSerialNumbers) {
    EXPECT_EQ(installationOf({}, "C2"), Installation::unidentified);
    EXPECT_EQ(installationOf("C2", {}), Installation::fresh);
    EXPECT_EQ(installationOf("C2", ""), Installation::fresh);
    EXPECT_EQ(installationOf("C2", "C2"), Installation::unchanged);
    EXPECT_EQ(installationOf("C2", "C3"), Installation::cloned);
    EXPECT_EQ(installationOf("2", 2), Installation::cloned) << "the saved one is no text";
}

TEST(CloneRule, CutsDescriptionsFrom46Characters) {
    const std::string e45 = support::repeated("é", 45);
    EXPECT_EQ(describeClone(e45, 12345), e45 + "_12345");
    EXPECT_EQ(describeClone(e45 + "é", 12345), support::repeated("é", 44) + "_12345");
}

TEST_F(Clone, TakesANewIdentity) {
    fakes::machine::serialNumber("C2");
    fakes::machine::interfaces({{0, addressA}});
    hostPreferences().setSerialNumber("C1");
    hostPreferences().setUniqueID("0a:1b:2c:3d:4e:5f");
    hostPreferences().setHostID("token");
    HostIdentity().validateCloneCaseWithSerialNumber();
    EXPECT_THAT(takeLog(hostLog),
                ElementsAre("Helper : System Serial Number C2", "Helper : Saved Serial Number C1",
                            "Helper : Saved serial number doesnt match with System serial number",
                            "Helper : Cloned case - update machineId with System Serial number : C2"));
    EXPECT_EQ(hostPreferences().hostID(), "");
    EXPECT_EQ(hostPreferences().hostDecription(), "Test Computer");
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
    fakes::machine::serialNumber("C/2");
    fakes::network::answerWith("DONE");
    hostPreferences().setSerialNumber("C1");
    hostPreferences().setIsServiceEnabled(true);
    hostPreferences().setProxyTopic("t&");
    HostIdentity().validateCloneCaseWithSerialNumber();
    const auto requests = fakes::network::requests();
    ASSERT_EQ(requests.size(), 2U);
    EXPECT_THAT(requests[0].body, testing::Optional(HasSubstr("&topic_id=t%26&app_pwd=&id=C%2F2&")));
    EXPECT_THAT(takeLog(hostLog),
                testing::IsSupersetOf({"Helper : Cloned case - update machineId with System MAC Address : C/2",
                                       "Clone : Update host Info : DONE"}));
}

TEST_F(Clone, RegistersOnceTheNetworkIsThere) {
    fakes::machine::serialNumber("C2");
    fakes::machine::uptime(2s);
    hostPreferences().setSerialNumber("C1");
    hostPreferences().setIsServiceEnabled(true);
    fakes::clock::onSleep([](std::chrono::nanoseconds) {
        EXPECT_EQ(hostPreferences().serialNumber(), "C1") << "were it to end now, the next start would see no clone";
        fakes::machine::interfaces({{0, addressA}});
        fakes::network::hasDefaultRoute(true);
    });
    HostIdentity().validateCloneCaseWithSerialNumber();
    EXPECT_EQ(fakes::clock::sleeps().size(), 2U) << "until there is a route, and a second more";
    EXPECT_EQ(hostPreferences().uniqueID(), "0a:1b:2c:3d:4e:5f");
    EXPECT_EQ(fakes::network::requests().size(), 2U);
}

TEST_F(Clone, StoresWhatTheServiceHandsOut) {
    const auto success = [](const std::string& message) {
        return platform::json::prettyPrinted(Dictionary{{"status", "OK"}, {"message", message}}).value();
    };

    const std::string longTopic = R"({"error":"0","access_token":[1],"proxy_topic":")" + std::string(4097, 'x') + "\"}";

    struct {
        const char* name;
        std::optional<std::string> answer;
        Stored token;
        Stored topic;
    } const cases[] = {
        {"texts", success(R"({"error":0,"access_token":"T","proxy_topic":"P"})"), "T", "P"},
        {"a container and a long text", success(longTopic), {}, {}},
        {"a message that is no text", R"({"status":"OK","message":{"error":1}})", {}, {}},
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
        EXPECT_THAT(takeLog(hostLog), ElementsAre(HasSubstr("Clone : Update Host"), HasSubstr(" \"no host\""),
                                                  "Clone : Update host Info : "));
    }
}

TEST_F(Clone, StopsWhenItsDescriptionIsRefused) {
    hostPreferences().setHostID("old");
    fakes::network::answerWith(R"({"status":"OK","message":"{\"error\":\"2\",\"access_token\":\"T\"}"})");
    HVLCloneHostRegistration().registerNewHostForClone();
    EXPECT_EQ(hostPreferences().hostID(), "old");
    EXPECT_THAT(takeLog(hostLog), ElementsAre("Service: ConfigureClient: Host description already exist."));
}
