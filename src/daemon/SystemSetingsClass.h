// The system's sleep timers, read and set with its tool `systemsetup`.
#pragma once

#include <cstdint>

namespace havrel {

/// Timers are in minutes. Operations block until the tool has closed its output; they throw nothing. Thread-safe.
class SystemSetingsClass {
  public:
    static constexpr std::uint64_t longestTimer = 180;
    /// "Never": the timer is off. Also what an answer without a timer reads as.
    static constexpr std::uint64_t never = 181;
    /// The tool wrote to standard error, or could not be run.
    static constexpr std::uint64_t failed = ~std::uint64_t{0};

    SystemSetingsClass() = delete;

    static std::uint64_t getComputerSleep();
    static std::uint64_t getDisplaySleep();
    /// Sets the timer; switches it off from `never` on. True if the tool answered on standard output alone.
    static bool setDisableComputerSleep(std::uint64_t minutes);
    static bool setDisableDisplaySleep(std::uint64_t minutes);
};

} // namespace havrel
