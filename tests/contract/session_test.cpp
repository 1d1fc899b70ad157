#include "contract/session_driver.h"
#include "platform/session.h"

#include <gtest/gtest.h>

namespace {

using namespace platform;
using contract::session::onMachine;

TEST(SessionContract, TheConsoleUserIsLookedUpAnew) {
    onMachine("ann", [] { EXPECT_EQ(session::consoleUser(), "ann"); });
    onMachine("bob", [] { EXPECT_EQ(session::consoleUser(), "bob"); });
    onMachine(std::nullopt, [] { EXPECT_EQ(session::consoleUser(), std::nullopt); });
}

} // namespace
