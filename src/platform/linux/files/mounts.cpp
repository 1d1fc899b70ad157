#include "platform/linux/files/mounts.h"

#include "foundation/error.h"
#include "foundation/numbers.h"
#include "foundation/text.h"
#include "platform/linux/files/folders.h"
#include "platform/linux/files/system_files.h"

#include <algorithm>
#include <array>
#include <fcntl.h>
#include <optional>
#include <string_view>
#include <sys/stat.h>

namespace platform {

namespace {

constexpr std::size_t longestTable = std::size_t{64} << 20;

constexpr std::array<std::string_view, 8> servedElsewhere{"fuse", "nfs", "cifs", "smb", "9p", "ceph", "afs", "autofs"};

/// Asks the kernel only, never the file system itself.
std::optional<std::uint64_t> mountOf(const Descriptor& folder) {
    struct statx facts {};

    const int result = ::statx(folder.get(), "", AT_EMPTY_PATH | AT_STATX_DONT_SYNC, STATX_MNT_ID, &facts);
    return result == 0 && (facts.stx_mask & STATX_MNT_ID) != 0 ? std::optional(facts.stx_mnt_id) : std::nullopt;
}

std::string parentOf(const std::string& path) { return path.substr(0, std::max<std::size_t>(path.rfind('/'), 1)); }

} // namespace

Mounts::Mounts() {
    // "36 35 98:0 /mnt1 /mnt2 rw,noatime master:1 - ext3 /dev/root rw,errors=continue"
    const Descriptor file(::open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC));
    const auto table = file ? readAll(file.get(), longestTable) : std::nullopt;
    if (!table) {
        throw Exception("file-system events: the mount table can't be read");
    }
    for (const std::string& line : text::split(*table, "\n")) {
        const auto fields = text::split(line, " ");
        const auto dash = std::find(fields.begin(), fields.end(), "-");
        const auto id = text::wholeNumber<std::uint64_t>(fields.front());
        if (id && fields.end() - dash > 1) {
            types_[*id] = *std::next(dash);
        }
    }
}

Descriptor Mounts::reach(const std::string& path) const {
    return reachFolder(path, [this](const Descriptor& folder) { return answer(folder); });
}

std::string Mounts::topOf(const std::string& path) const {
    std::string top = path;
    std::optional<std::uint64_t> mount;
    for (std::string next = path;; next = parentOf(next)) {
        const Descriptor folder = reach(next);
        const auto found = folder ? mountOf(folder) : std::nullopt;
        if (mount && found != mount) {
            return top;
        }
        mount = found;
        top = next;
        if (next == "/") {
            return top;
        }
    }
}

bool Mounts::answer(const Descriptor& folder) const {
    const auto mount = mountOf(folder);
    const auto type = mount ? types_.find(*mount) : types_.end();
    return type != types_.end() && std::none_of(servedElsewhere.begin(), servedElsewhere.end(),
                                                [&](auto beginning) { return type->second.starts_with(beginning); });
}

} // namespace platform
