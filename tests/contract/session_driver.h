// How the session cases are driven. The unit tests define this for the stand-in, the platform tests for the real
// service.
#pragma once

#include <memory>
#include <string>

namespace contract::session {

/// While it lives, the services under test see a machine with the users "ann" and "bob", nobody at its console.
class Machine {
  public:
    Machine();
    ~Machine();
    Machine(const Machine&) = delete;
    Machine& operator=(const Machine&) = delete;

    /// The user's desktop is at the console from now on.
    void logIn(const std::string& user);
    void logOut();

  private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace contract::session
