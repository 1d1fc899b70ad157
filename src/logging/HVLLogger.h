// Timestamped lines in plain-text log files: the only logging facility of the system.
#pragma once

#include "foundation/serial_queue.h"
#include "logging/PendingLines.h"

#include <cstddef>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace havrel {

/// One log file. A line is queued at once and written in the background, in the order of the calls; logging is
/// best-effort and never blocks, fails or raises. Every operation may be called from any thread.
///
/// The file ends as if each line had been written by itself: the file is read, a line break and
/// "yyyy-MM-dd HH:mm:ss : message " are appended, all but the newest `maximumLength` characters are cut off and the
/// file is replaced. What cannot be read as UTF-8 is given up for the line alone.
class HVLLogger {
  public:
    /// The most that a log file holds, in UTF-16 code units.
    static constexpr std::size_t maximumLength = 102'400;

    /// The general log, the host log and the viewer log. Made when first asked for and never destroyed.
    static HVLLogger& instance();
    static HVLLogger& instanceHost();
    static HVLLogger& instanceViewer();

    /// A logger that has made sure of a file at the path, if the folder is there. It writes nothing until
    /// `setLogFilePath` has been called, too.
    static std::unique_ptr<HVLLogger> initWithLogFile(const std::string& path);

    /// Where the viewer's lines go when the application at `bundlePath` runs as a user with that home folder.
    static std::string viewerLogFile(const std::string& bundlePath, const std::string& homeFolder);

    /// Blocks until every line logged before is written, in those of the three instances that exist.
    static void drainAll();

    HVLLogger(const HVLLogger&) = delete;
    HVLLogger& operator=(const HVLLogger&) = delete;

    /// Queues one line; an absent message writes nothing. Invalid UTF-8 is repaired.
    void logString(std::optional<std::string> message);
    /// Blocks until every line logged before is written.
    void drain();

    std::optional<std::string> logFilePath() const;
    void setLogFilePath(std::optional<std::string> path);

  private:
    HVLLogger() = default;

    static HVLLogger& shared(const std::string& path);

    void writePending();

    mutable std::mutex mutex_;
    std::optional<std::string> logFilePath_;
    PendingLines pending_;
    bool writeQueued_ = false;
    /// Ends before what its tasks use.
    platform::SerialQueue serialQueue_{"com.HVL.LoggerQueue"};
};

} // namespace havrel
