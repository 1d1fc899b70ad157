#include "util/HVLFileManager.h"

#include "platform/clock.h"
#include "platform/files.h"
#include "platform/session.h"
#include "platform/system_info.h"
#include "util/HVLLocalizableString.h"
#include "util/ProductPaths.h"

namespace havrel {

namespace {

bool runsAsViewer() {
    const std::string bundle = platform::system_info::bundlePath();
    return bundle == paths::viewerSupport + "/HavrelView.app" || bundle == paths::viewerSupport;
}

std::string titleOf(int kind) {
    switch (kind) {
    case HVLFileManager::hostKind:
        return "HVLHostPreference";
    case HVLFileManager::viewerKind:
        return "HVLViewerPreference";
    default:
        return "HVLHostPreferenceBackUp";
    }
}

} // namespace

std::optional<std::string> HVLFileManager::pathForApplicationFile(int kind) {
    if (kind < hostKind || kind > hostBackupKind) {
        return std::nullopt;
    }
    const bool viewer = runsAsViewer();
    if (!viewer) {
        // The title isn't needed; the lookup loads the string table.
        HVLLocalizableString::doLocalizeString(titleOf(kind), {});
    }
    if (kind == hostBackupKind) {
        return paths::viewerSupport + "/.HostPref1.plist";
    }
    return (viewer ? paths::viewerSupport : paths::hostSupport) +
           (kind == hostKind ? "/.HostPref.plist" : "/.ViewerPref.plist");
}

std::optional<std::string> HVLFileManager::getConsoleUserPathForUser(const std::optional<std::string>& userName) {
    return userName ? platform::session::homeFolder(*userName) : std::nullopt;
}

bool HVLFileManager::ifFileExistsOrNot(const std::string& fileName) {
    return platform::files::exists(paths::applicationSupport + "/" + fileName);
}

std::uint64_t HVLFileManager::sizeForFolderAtPath(const std::string& path, std::optional<platform::Error>& /*error*/) {
    // Keeps a huge tree from starving other threads.
    constexpr unsigned itemsBetweenYields = 10'000;
    constexpr double megabytesPerByte = 0.000001;
    std::uint64_t total = 0;
    unsigned items = 0;
    platform::files::walkVisible(path, [&](std::uint64_t bytes) {
        total += bytes;
        if (++items == itemsBetweenYields) {
            platform::clock::yield();
            items = 0;
        }
    });
    return static_cast<std::uint64_t>(static_cast<double>(total) * megabytesPerByte);
}

void HVLFileManager::updateFile(const std::optional<std::string>& /*file*/) {}

void HVLFileManager::createDirectory() {}

} // namespace havrel
