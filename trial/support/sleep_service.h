// A login manager that can send the machine to sleep, as far as anybody on the bus can tell.
#pragma once

#include <chrono>
#include <memory>
#include <string>

namespace trial {

/// Owns the login manager's name on a bus while it lives; hands out delay locks. From any thread.
class SleepService {
  public:
    /// Throws std::system_error when there is no bus at that address.
    explicit SleepService(const std::string& address);
    ~SleepService();
    SleepService(const SleepService&) = delete;
    SleepService& operator=(const SleepService&) = delete;

    /// Announces that the machine goes to sleep (true) or has woken. Everybody on the bus can ask for it too, by the
    /// manager's method of that name.
    void prepareForSleep(bool begins);

    /// How many locks are held now, that is, handed out and not closed by their owner.
    std::size_t locks() const;
    /// Blocks until that many are held or the deadline has passed; returns whether they are.
    bool waitForLocks(std::size_t count, std::chrono::milliseconds deadline = std::chrono::seconds{10}) const;

  private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace trial
