#include "contract/session_driver.h"
#include "platform/session.h"

#include <gtest/gtest.h>

namespace {

using namespace platform;

class SessionContract : public testing::Test {
  protected:
    contract::session::Machine machine;
};

TEST_F(SessionContract, TheConsoleUserIsLookedUpAnew) {
    EXPECT_EQ(session::consoleUser(), std::nullopt);
    machine.logIn("ann");
    EXPECT_EQ(session::consoleUser(), "ann");
    machine.logIn("bob");
    EXPECT_EQ(session::consoleUser(), "bob");
    machine.logOut();
    EXPECT_EQ(session::consoleUser(), std::nullopt);
}

TEST_F(SessionContract, AHomeFolderNeedsNoLogin) {
    EXPECT_EQ(session::homeFolder("ann"), "/Users/ann");
    EXPECT_EQ(session::homeFolder("bob"), "/Users/bob");
    EXPECT_EQ(session::homeFolder("nobody here"), std::nullopt);
    EXPECT_EQ(session::homeFolder(""), std::nullopt);
    EXPECT_TRUE(session::currentHomeFolder().starts_with("/"));
}

} // namespace
