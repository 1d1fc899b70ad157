// What a batch of file-system events means for the product.
#pragma once

#include "platform/file_system_events.h"

#include <string>
#include <vector>

namespace havrel {

/// A folder that was moved to another parent folder.
struct FolderMove {
    std::string source;
    std::string destination;

    bool operator==(const FolderMove&) const = default;
};

/// The moves in one batch, in order. The first rename that is not part of a move yet is a source. Its destination is
/// the next renamed folder in another parent folder; the renames in between are skipped.
std::vector<FolderMove> folderMoves(const std::vector<platform::FileSystemEvent>& batch);

enum class TrashedProduct { none, host, viewer };

/// Which product the move puts into a Trash folder.
TrashedProduct trashedProduct(const FolderMove& move);

} // namespace havrel
