#include "daemon/TrashRule.h"

#include <algorithm>
#include <optional>
#include <string_view>

namespace havrel {

namespace {

// Those outside the watched folders stay in the list on purpose.
constexpr std::string_view hostProducts[] = {
    "/Applications/HavrelSuite.app",
    "/Applications/HavrelSuite",
    "/Applications/HavrelHost",
    "/Applications/HavrelHost.app",
    "/Library/Application Support/HVLForMac/HavrelUninstaller.app",
    "/Library/Application Support/HVLForMac/Resources",
    "/Library/Application Support/HVLForMac/Resources/File Transfer.app",
    "/Library/Application Support/HVLForMac/Resources/Host File Transfer.app",
    "/Library/Application Support/HVLForMac/Resources/HavrelDesktop.app",
    "/Library/Application Support/HVLForMac/Resources/HavrelView.app",
    "/Library/Application Support/HVLForMac/Resources/HVLNote.app",
    "/Library/Application Support/HVLForMac/Resources/HVLVersionUpdate",
};
constexpr std::string_view viewerProducts[] = {"/Applications/HavrelViewer", "/Applications/HavrelViewer.app"};

std::string_view parentOf(std::string_view path) {
    const auto slash = path.rfind('/');
    return slash == std::string_view::npos ? std::string_view() : path.substr(0, slash);
}

bool isFolderAlone(std::uint32_t flags) {
    return (flags & (platform::itemIsFile | platform::itemIsDir)) == platform::itemIsDir;
}

template <std::size_t count>
bool isOneOf(const std::string_view (&products)[count], const std::string& path) {
    return std::find(std::begin(products), std::end(products), path) != std::end(products);
}

} // namespace

std::vector<FolderMove> folderMoves(const std::vector<platform::FileSystemEvent>& batch) {
    std::vector<FolderMove> moves;
    std::optional<std::string> source;
    for (const platform::FileSystemEvent& event : batch) {
        if ((event.flags & platform::itemRenamed) == 0) {
            continue;
        }
        if (!source) {
            source = event.path;
        } else if (isFolderAlone(event.flags) && parentOf(*source) != parentOf(event.path)) {
            moves.push_back({*source, event.path});
            source.reset();
        }
    }
    return moves;
}

TrashedProduct trashedProduct(const FolderMove& move) {
    if (move.destination.find(".Trash") == std::string::npos) {
        return TrashedProduct::none;
    }
    if (isOneOf(hostProducts, move.source)) {
        return TrashedProduct::host;
    }
    return isOneOf(viewerProducts, move.source) ? TrashedProduct::viewer : TrashedProduct::none;
}

} // namespace havrel
