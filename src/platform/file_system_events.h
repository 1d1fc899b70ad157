// File-system event streams: what was renamed in a set of folders.
#pragma once

#include "platform/run_loop.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace platform {

/// Bits of an event's flags, with the values that the platform gives them.
enum FileSystemEventFlags : std::uint32_t {
    itemRenamed = 0x800,
    itemIsFile = 0x10000,
    itemIsDir = 0x20000,
};

struct FileSystemEvent {
    /// Absolute, without HAVREL_ROOT.
    std::string path;
    std::uint32_t flags = 0;
};

/// Watches the direct entries of folders from now on, for renames only; nothing below those entries is looked at. A
/// batch is one move: its source and its destination, or only one of the two when the other lies outside the folders.
/// Moves of different items never share a batch, so that one user's renames can't be taken for halves of another's.
///
/// A folder that is missing, is replaced or is mounted later is found again. Links on the way to it are followed as
/// platform/files.h says; a folder whose file system is served by another process or machine is not watched. When the
/// system loses events, that is said on standard error (rate-limited) and what the folders hold is compared with what
/// they held: what moved from one to another is reported.
///
/// "/Users/NAME/.Trash", while there is no such folder, stands for the Trash that the user's desktop keeps.
class FileSystemEventStream {
  public:
    using Callback = std::function<void(const std::vector<FileSystemEvent>& batch)>;

    /// Calls back on the loop's thread, `latency` after the first event of a move, or earlier when very many wait. Made
    /// and destroyed on that thread.
    FileSystemEventStream(RunLoop& loop, const std::vector<std::string>& paths, std::chrono::milliseconds latency,
                          Callback callback);
    /// Hands on what still waits. There are no calls afterwards.
    ~FileSystemEventStream();
    FileSystemEventStream(const FileSystemEventStream&) = delete;
    FileSystemEventStream& operator=(const FileSystemEventStream&) = delete;

  private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace platform
