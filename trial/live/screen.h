// The live view: one line for each thing that happens, with its time and where it comes from. On a terminal the
// progress stands below the last line and is drawn over; elsewhere it becomes lines of its own, a few.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>

namespace trial {

class Screen {
  public:
    Screen();

    ~Screen() { endProgress(); }

    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;

    /// Text that belongs to no moment, as it is; may hold several lines.
    void text(std::string_view lines);
    /// Something that happened now. Control characters are shown as "?".
    void event(std::string_view source, std::string_view what);
    void progress(std::size_t done, std::size_t all);
    /// Takes an unfinished progress line away.
    void endProgress();

    /// Emphasis on a terminal, else the text as it is.
    std::string bold(std::string_view text) const;
    std::string good(std::string_view text) const;
    std::string bad(std::string_view text) const;

  private:
    std::string styled(const char* style, std::string_view text) const;
    void write(std::string_view bytes);

    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    bool isTerminal_;
    bool hasColours_;
    /// Empty when there is none; whether it stands on the terminal now.
    std::string progressLine_;
    bool isDrawn_ = false;
    std::size_t reported_ = 0;
};

} // namespace trial
