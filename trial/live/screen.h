// The live view: a line for each event, with its time and source. On a terminal, progress is a bar below the last line;
// elsewhere it is a few lines of its own.
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

    /// Prints text as it is, without a time.
    void text(std::string_view lines);
    /// Prints a line for something that has just happened. Control characters are shown as "?".
    void event(std::string_view source, std::string_view what);
    void progress(std::size_t done, std::size_t all);
    /// Removes an unfinished progress bar.
    void endProgress();

    /// Text with emphasis on a terminal, else as it is.
    std::string bold(std::string_view text) const;
    std::string good(std::string_view text) const;
    std::string bad(std::string_view text) const;

  private:
    std::string styled(const char* style, std::string_view text) const;
    void write(std::string_view bytes);

    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    bool isTerminal_;
    bool hasColours_;
    /// Empty if there is none.
    std::string progressLine_;
    /// Whether it is on the terminal now.
    bool isDrawn_ = false;
    std::size_t reported_ = 0;
};

} // namespace trial
