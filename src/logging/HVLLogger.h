// Timestamped lines in plain-text log files.
#pragma once

#include "foundation/guarded.h"
#include "foundation/serial_queue.h"
#include "logging/PendingLines.h"

#include <chrono>
#include <cstddef>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace havrel {

/// One log file. Lines are queued and written in the background, in the order of the calls. Logging is best-effort: it
/// never blocks on the disk, never reports a failure and never throws. Thread-safe.
///
/// Each write reads the file, appends "\nyyyy-MM-dd HH:mm:ss : message ", cuts the beginning so that `maximumLength`
/// characters remain, and replaces the file. A file that can't be read or isn't UTF-8 is replaced by the line alone,
/// without the line break; of a file longer than 16 MiB only the end is looked at. While nobody can tell what the file
/// holds, for want of descriptors or memory or because the disk fails, lines wait for the next one that is logged.
class HVLLogger {
  public:
    /// Of a log file, in UTF-16 code units.
    static constexpr std::size_t maximumLength = 102'400;

    /// The general log, the host log and the viewer log. Created on first use, never destroyed.
    static HVLLogger& instance();
    static HVLLogger& instanceHost();
    static HVLLogger& instanceViewer();

    /// Creates an empty file at the path unless there is one or its folder is missing. The logger writes nothing until
    /// its `setLogFilePath` has been called.
    static std::unique_ptr<HVLLogger> initWithLogFile(const std::string& path);

    /// The viewer log of an application at `bundlePath` that runs as the user with that home folder.
    static std::string viewerLogFile(const std::string& bundlePath, const std::string& homeFolder);

    /// Calls `drain` on those of the three instances that exist.
    static void drainAll();

    HVLLogger(const HVLLogger&) = delete;
    HVLLogger& operator=(const HVLLogger&) = delete;

    /// Queues one line; nullopt writes nothing. Invalid UTF-8 is repaired.
    void logString(std::optional<std::string> message);
    /// Blocks until all lines logged before the call are written, or have been tried.
    void drain();

    std::optional<std::string> logFilePath() const { return logFilePath_.get(); }

    void setLogFilePath(std::optional<std::string> path) { logFilePath_.set(std::move(path)); }

  private:
    HVLLogger() = default;

    /// How long a line may wait for others that come with it: each write replaces the whole file.
    static constexpr std::chrono::milliseconds gathering{50};

    static HVLLogger& shared(const std::string& path);

    void writePending();
    std::vector<std::string> takePending();

    platform::Guarded<std::optional<std::string>> logFilePath_;
    /// Guards the two fields below.
    std::mutex mutex_;
    PendingLines pending_;
    bool writeQueued_ = false;
    /// Last, so that it is destroyed before the fields that its tasks use.
    platform::SerialQueue serialQueue_{"com.HVL.LoggerQueue", gathering};
};

} // namespace havrel
