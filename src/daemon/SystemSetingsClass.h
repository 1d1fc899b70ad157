// The system's sleep timers, read and set with its own tool.
#pragma once

#include <cstdint>

namespace havrel {

/// Timers in minutes: 0 to 180 are real, 181 means "Never" (off), all ones means that the tool reported an error.
/// Each operation blocks until the tool has closed its output.
class SystemSetingsClass {
  public:
    static constexpr std::uint64_t longestTimer = 180;
    static constexpr std::uint64_t never = 181;
    static constexpr std::uint64_t failed = ~std::uint64_t{0};

    SystemSetingsClass() = delete;

    static std::uint64_t getComputerSleep();
    static std::uint64_t getDisplaySleep();
    /// Sets the timer, "Never" from 181 on; whether the tool answered without complaint.
    static bool setDisableComputerSleep(std::uint64_t minutes);
    static bool setDisableDisplaySleep(std::uint64_t minutes);
};

} // namespace havrel
