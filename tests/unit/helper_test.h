// The controller after its start-up, with both pingers asleep: only the test runs tools and writes logs from here on.
#pragma once

#include "daemon/Helper.h"
#include "support/core_test.h"

class HelperTest : public support::CoreTest {
  protected:
    HelperTest() {
        fakes::clock::blockFrom(std::chrono::minutes(8)); // the pingers' first pause
        helper = std::make_unique<havrel::Helper>();
        fakes::clock::waitForSleepers(2);
        takeLog(hostLog);
        takeLog(generalLog);
    }

    std::unique_ptr<havrel::Helper> helper;
};
