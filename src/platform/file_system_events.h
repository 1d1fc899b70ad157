// File-system event streams: which items were renamed below a set of folders, recursively, in batches.
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

/// Watches folders and all below them from now on, for renames only: nothing asks for more. A rename gives two events
/// that stand together, source before destination; a move into or out of the watched folders gives one. Folders that
/// are missing are watched once they appear; links are not followed. When the system loses events, that is said on
/// standard error and the tree is scanned again, every five seconds at the most: a folder found elsewhere than before
/// is reported as renamed. Folders too many or too deep for a bounded watch count as outside; each of the folders given
/// has its own share.
class FileSystemEventStream {
  public:
    using Callback = std::function<void(const std::vector<FileSystemEvent>& batch)>;

    /// Calls back on the loop's thread with each batch, `latency` after its first event or when it is large. Made and
    /// destroyed on that thread.
    FileSystemEventStream(RunLoop& loop, const std::vector<std::string>& paths, std::chrono::milliseconds latency,
                          Callback callback);
    /// No call comes after.
    ~FileSystemEventStream();
    FileSystemEventStream(const FileSystemEventStream&) = delete;
    FileSystemEventStream& operator=(const FileSystemEventStream&) = delete;

  private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace platform
