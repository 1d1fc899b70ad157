#include "prefs/HVLUserPrefManager.h"

#include "foundation/base64.h"
#include "foundation/format.h"
#include "foundation/numbers.h"
#include "foundation/unicode.h"
#include "platform/files.h"
#include "platform/network.h"
#include "platform/notifications.h"
#include "platform/system_info.h"
#include "util/HVLFileManager.h"
#include "util/ProductPaths.h"
#include "util/PropertyListFile.h"

#include <string_view>
#include <utility>

namespace havrel {

namespace {

using platform::Dictionary;
using platform::Value;

/// What an encoded text that cannot be decoded reads as.
enum class Broken { absent, asStored };

std::optional<Dictionary> readDictionary(const std::optional<std::string>& path) {
    auto content = path ? readPropertyList(*path) : std::nullopt;
    auto* dictionary = content ? content->as<Dictionary>() : nullptr;
    return dictionary ? std::optional(std::move(*dictionary)) : std::nullopt;
}

bool writeDictionary(const std::optional<std::string>& path, const Value& dictionary) {
    return path && writePropertyList(*path, dictionary);
}

/// Posting only queues, so it may happen under a lock.
void announceChange() { platform::distributed_center::post("ListHasBeenUpdated"); }

/// Reads as above; a file that holds no dictionary is made an empty one.
Dictionary readOrReset(const std::optional<std::string>& path) {
    if (auto content = readDictionary(path)) {
        return *std::move(content);
    }
    writeDictionary(path, Dictionary());
    announceChange();
    return {};
}

/// There is no text to store when there is none or when it is no UTF-8.
std::optional<std::string> encoded(const std::optional<std::string>& text) {
    return text && platform::text::isValidUtf8(*text) ? std::optional(platform::base64::encode(*text)) : std::nullopt;
}

std::optional<std::string> decoded(const std::optional<Value>& stored, Broken broken) {
    const auto text = platform::textOf(stored);
    const auto bytes = text ? platform::base64::decode(*text) : std::nullopt;
    auto plain = bytes ? platform::text::decodeUtf8(*bytes) : std::nullopt;
    return plain || broken == Broken::absent ? plain : text;
}

/// The name of the system's release; one that is not listed is simply "macOS".
std::string releaseName(const platform::system_info::Version& version) {
    struct Release {
        std::int64_t minor;
        const char* name;
    };

    static constexpr Release releases[] = {
        {10, "OS X Yosemite"}, {11, "OS X El Capitan"}, {12, "macOS Sierra"},  {13, "macOS High Sierra"},
        {14, "macOS Mojave"},  {15, "macOS Catalina"},  {16, "macOS Big Sur"},
    };
    if (version.major == 11) {
        return "macOS Big Sur";
    }
    for (const Release& release : releases) {
        if (version.major == 10 && version.minor == release.minor) {
            return release.name;
        }
    }
    return "macOS";
}

/// The status file of that user, in a folder that is made when it is missing. Every local user can write the stored
/// name, so one that would leave the support folder, or that the system would cut at a NUL, counts as none.
std::string wolFile(const std::optional<Value>& userName) {
    std::string user = platform::textOf(userName).value_or("");
    if (user == "." || user == ".." || user.find_first_of(std::string_view("/\0", 2)) != std::string::npos) {
        user.clear();
    }
    const std::string folder = paths::hostSupport + "/" + user;
    platform::files::createFolders(folder);
    return folder + "/wol";
}

} // namespace

HVLUserPrefManager& HVLUserPrefManager::sharedHVLUserPrefManager() {
    static HVLUserPrefManager shared;
    return shared;
}

HVLUserPrefManager& HVLUserPrefManager::hostPref() { return select(HVLFileManager::hostKind, hostUserPrefPath_); }

HVLUserPrefManager& HVLUserPrefManager::viewerPref() { return select(HVLFileManager::viewerKind, viewerUserPrefPath_); }

HVLUserPrefManager& HVLUserPrefManager::hostBackupPref() {
    return select(HVLFileManager::hostBackupKind, hostUserPrefBackupPath_);
}

HVLUserPrefManager& HVLUserPrefManager::select(int kind, std::optional<std::string>& firstPath) {
    const auto path = HVLFileManager::pathForApplicationFile(kind);
    const std::lock_guard lock(fields_);
    if (!firstPath) {
        firstPath = path;
    }
    urlForPrefFile_ = path;
    return *this;
}

Dictionary HVLUserPrefManager::getPrefDictionary() const {
    // The path is taken once: a selection on another thread must not send one file's reset to the other file.
    const auto path = urlForPrefFile();
    if (auto content = readDictionary(path)) {
        return *std::move(content);
    }
    // Looked at again under the lock, lest the reset undo a write that has repaired the file meanwhile.
    const std::lock_guard lock(writing_);
    return readOrReset(path);
}

std::optional<Value> HVLUserPrefManager::objectForKey(const std::string& key) const {
    // The system is asked for its version before each read, as all applications of the product do; nothing depends on
    // the answer.
    static_cast<void>(macOSMinorVersion());
    auto found = getPrefDictionary().extract(key);
    return found ? std::optional(std::move(found.mapped())) : std::nullopt;
}

void HVLUserPrefManager::setObject(std::optional<Value> value, const std::string& forKey) {
    // Taken before the wait for other writers: what was selected may change during it.
    const auto path = urlForPrefFile();
    const std::lock_guard lock(writing_);
    Dictionary dictionary = readOrReset(path);
    if (!value) {
        dictionary.erase(forKey);
        writeDictionary(path, dictionary);
        return;
    }
    dictionary.insert_or_assign(forKey, *std::move(value));
    const Value content(std::move(dictionary));
    const bool written = writeDictionary(path, content);
    announceChange();
    if (!written) {
        // The mode is 777 in decimal, and the folder is the suite's whichever file failed: what the product's
        // applications find after a failed write is the same whoever made it.
        platform::files::setPermissions(paths::suiteSupport, 777);
        writeDictionary(path, content);
        announceChange();
    }
}

#define BOOLEAN(key, getter, setter)                                                                                   \
    bool HVLUserPrefManager::getter() const { return objectForKey(key).value_or(false).boolValue(); }                  \
    void HVLUserPrefManager::setter(bool value) { setObject(value, key); }
#define INTEGER(key, getter, setter)                                                                                   \
    std::int64_t HVLUserPrefManager::getter() const { return objectForKey(key).value_or(0).integerValue(); }           \
    void HVLUserPrefManager::setter(std::int64_t value) { setObject(value, key); }
#define ENCODED(key, getter, setter, broken)                                                                           \
    std::optional<std::string> HVLUserPrefManager::getter() const { return decoded(objectForKey(key), broken); }       \
    void HVLUserPrefManager::setter(const std::optional<std::string>& text) {                                          \
        if (auto stored = encoded(text)) {                                                                             \
            setObject(std::move(stored), key);                                                                         \
        }                                                                                                              \
    }
#define PLAIN_GETTER(key, getter)                                                                                      \
    std::optional<Value> HVLUserPrefManager::getter() const { return objectForKey(key); }
#define PLAIN(key, getter, setter)                                                                                     \
    PLAIN_GETTER(key, getter)                                                                                          \
    void HVLUserPrefManager::setter(std::optional<Value> value) { setObject(std::move(value), key); }
#define FIELD_GETTER(type, name)                                                                                       \
    std::optional<type> HVLUserPrefManager::name() const {                                                             \
        const std::lock_guard lock(fields_);                                                                           \
        return name##_;                                                                                                \
    }
#define FIELD_SETTER(type, name, setter)                                                                               \
    void HVLUserPrefManager::setter(std::optional<type> value) {                                                       \
        const std::lock_guard lock(fields_);                                                                           \
        name##_ = std::move(value);                                                                                    \
    }
#define FIELD(type, name, setter) FIELD_GETTER(type, name) FIELD_SETTER(type, name, setter)
#include "prefs/catalogue.def"

void HVLUserPrefManager::setHostDecription(const std::optional<Value>& description) {
    platform::distributed_center::post("RefreshHostDescription", description ? description->description() : "");
    setObject(description, "HostDescription");
}

std::string HVLUserPrefManager::MacOSVersionWithAllDigits() const {
    const auto version = platform::system_info::systemVersion();
    return platform::text::format("%ld.%ld.%ld", version.major, version.minor, version.patch);
}

std::int64_t HVLUserPrefManager::macOSMajorVersion() const { return platform::system_info::systemVersion().major; }

std::int64_t HVLUserPrefManager::macOSMinorVersion() const { return platform::system_info::systemVersion().minor; }

std::string HVLUserPrefManager::oSDetails() const {
    return platform::text::format("%@ %@", releaseName(platform::system_info::systemVersion()),
                                  MacOSVersionWithAllDigits());
}

std::int64_t HVLUserPrefManager::currentVersionInIntegerFormat() const {
    return integerFormatOfVersion(platform::textOf(havrelVersion()).value_or(""));
}

std::int64_t HVLUserPrefManager::integerFormatOfVersion(const std::string& text) const {
    std::string digits = text;
    std::erase_if(digits, [](char character) { return character < '0' || character > '9'; });
    return platform::text::integerValue(digits);
}

std::string HVLUserPrefManager::getRandomString() const {
    static constexpr std::string_view alphabet = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
    std::string text;
    while (text.size() < 10) {
        text += alphabet[platform::system_info::randomBelow(alphabet.size())];
    }
    return text;
}

std::uint32_t HVLUserPrefManager::getRandomNumberBetween(std::uint32_t low, std::uint32_t to) const {
    const std::uint32_t random = platform::system_info::random();
    // Wraps to 0 for the whole range.
    const std::uint32_t width = to - low + 1;
    return low + (width == 0 ? random : random % width);
}

std::uint32_t HVLUserPrefManager::getPortNumber() const { return getRandomNumberBetween(10000, 65535); }

bool HVLUserPrefManager::isMacProxySetUp() const {
    // The settings are asked what they would do with these addresses; nothing is sent there.
    const std::string secure = platform::network::proxyType("https://www.example.com");
    if (secure != "kCFProxyTypeNone") {
        return secure == "kCFProxyTypeHTTPS";
    }
    return platform::network::proxyType("http://www.example.com") == "kCFProxyTypeHTTP";
}

std::optional<std::string> HVLUserPrefManager::wolStatus() const {
    const std::string file = wolFile(loggedInuserName());
    if (!platform::files::exists(file)) {
        // Creating never replaces a status that another thread or application has written meanwhile.
        platform::files::createEmpty(file);
        announceChange();
    }
    const auto content = platform::files::read(file);
    return content ? platform::text::decodeUtf8(*content) : std::nullopt;
}

// NOLINTNEXTLINE(readability-make-member-function-const): it changes a setting, as every setter does.
void HVLUserPrefManager::setwolStatus(const std::string& text) {
    platform::files::replace(wolFile(loggedInuserName()), text, platform::files::Durability::flushed);
    announceChange();
}

} // namespace havrel
