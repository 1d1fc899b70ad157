#include "platform/linux/files/trash_folders.h"

#include "foundation/format.h"
#include "platform/linux/machine/login_records.h"

#include <optional>
#include <set>
#include <string_view>

namespace platform {

namespace {

/// NAME in "/Users/NAME/.Trash".
std::optional<std::string> ownerOf(std::string_view path) {
    constexpr std::string_view beginning = "/Users/", end = "/.Trash";
    if (path.size() <= beginning.size() + end.size() || !path.starts_with(beginning) || !path.ends_with(end)) {
        return std::nullopt;
    }
    const std::string_view name = path.substr(beginning.size(), path.size() - beginning.size() - end.size());
    return name.find('/') == std::string_view::npos ? std::optional(std::string(name)) : std::nullopt;
}

/// Which of them a desktop chooses depends on the file system of the home, which may be mounted later.
std::vector<std::string> desktopTrashes(const User& user, const std::set<std::string>& tops) {
    std::vector<std::string> folders{user.home + "/.local/share/Trash/files"};
    const std::string id = std::to_string(user.id);
    for (const std::string& top : tops) {
        const std::string prefix = top == "/" ? "" : top;
        folders.push_back(text::format("%@/.Trash-%@/files", prefix, id));
        folders.push_back(text::format("%@/.Trash/%@/files", prefix, id));
    }
    return folders;
}

} // namespace

std::vector<WatchedFolder> withDesktopTrashes(const std::vector<std::string>& paths) {
    const Mounts mounts;
    std::set<std::string> tops;
    for (const std::string& path : paths) {
        if (!ownerOf(path)) {
            tops.insert(mounts.topOf(path));
        }
    }
    std::vector<WatchedFolder> folders;
    for (const std::string& path : paths) {
        const std::size_t product = folders.size();
        folders.push_back({path, path});
        const auto name = ownerOf(path);
        if (const auto user = name ? loginRecords().findUser(*name) : std::nullopt;
            user && user->home.starts_with('/')) {
            for (const std::string& place : desktopTrashes(*user, tops)) {
                folders.push_back({path, place, product});
            }
        }
    }
    return folders;
}

} // namespace platform
