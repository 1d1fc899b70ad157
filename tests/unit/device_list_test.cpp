#include "daemon/DeviceList.h"
#include "support/print_value.h"

#include <gtest/gtest.h>

using platform::Dictionary;
using platform::Value;
using Stored = std::optional<Value>;

TEST(DeviceList, HoldsWhatHasATokenOrASignature) {
    const Dictionary host{{"token", "H"}};
    const Dictionary viewer{{"token", "V"}};
    const Dictionary instantHost{{"id", "C"}, {"client_signature", "S"}};

    const struct {
        const char* name;
        Stored hostToken, viewerToken, clientId, signature;
        Dictionary regular, instant;
    } cases[] = {
        {"everything", "H", "V", "C", "S", {{"host", host}, {"viewer", viewer}}, {{"host", instantHost}}},
        {"viewer alone", "", "V", {}, {}, {{"viewer", viewer}}, {}},
        {"no signature", {}, {}, "C", {}, {}, {}},
        {"empty ID and signature", {}, {}, "", "", {}, {{"host", Dictionary{{"id", ""}, {"client_signature", ""}}}}},
    };

    for (const auto& row : cases) {
        const Dictionary list = havrel::deviceList(row.hostToken, row.viewerToken, row.clientId, row.signature);
        EXPECT_EQ(list, (Dictionary{{"regular", row.regular}, {"instant", row.instant}})) << row.name;
    }
}
