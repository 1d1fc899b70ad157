// A stand-in for the login manager, of the part that announces sleep and hands out delay locks.
#pragma once

#include <chrono>
#include <memory>
#include <string>

namespace trial {

/// Owns the login manager's name on the bus while it lives. Thread-safe.
class SleepService {
  public:
    /// Throws std::system_error if there is no bus at that address.
    explicit SleepService(const std::string& address);
    ~SleepService();
    SleepService(const SleepService&) = delete;
    SleepService& operator=(const SleepService&) = delete;

    /// Announces that the machine is going to sleep (true) or has woken up. Others can have it do so by its bus method
    /// of that name.
    void prepareForSleep(bool begins);

    /// How many locks are handed out and not yet closed by their owners.
    std::size_t locks() const;
    /// Blocks until `count` locks are held; false if that does not happen within `deadline`.
    bool waitForLocks(std::size_t count, std::chrono::milliseconds deadline = std::chrono::seconds{10}) const;

  private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace trial
