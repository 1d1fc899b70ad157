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

/// The moves in one batch, in order. The first rename that is left over is the source; the next one that is a folder in
/// another parent folder is its destination, any other is passed over.
std::vector<FolderMove> folderMoves(const std::vector<platform::FileSystemEvent>& batch);

enum class TrashedProduct { none, host, viewer };

/// Which product the move puts into a Trash folder.
TrashedProduct trashedProduct(const FolderMove& move);

} // namespace havrel
