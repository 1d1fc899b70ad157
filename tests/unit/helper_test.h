// The controller after its start-up, its pingers asleep: from here on nothing but the test runs tools or writes logs.
#pragma once

#include "daemon/Helper.h"
#include "support/core_test.h"

class HelperTest : public support::CoreTest {
  protected:
    HelperTest() {
        fakes::clock::blockFrom(std::chrono::minutes(8)); // the pingers' pauses
        helper = std::make_unique<havrel::Helper>();
        fakes::clock::waitForSleepers(2);
        takeLogs();
    }

    /// The lines of the host log, a "|", those of the general log.
    std::string takeLogs() const {
        return platform::text::join(takeLog(hostLog), "\n") + "|" + platform::text::join(takeLog(generalLog), "\n");
    }

    std::unique_ptr<havrel::Helper> helper;
};
