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

/// What an encoded text reads as when it can't be decoded.
enum class Undecodable { absent, asStored };

std::optional<Dictionary> readDictionary(const std::optional<std::string>& path) {
    auto content = path ? readPropertyList(*path) : std::nullopt;
    auto* dictionary = content ? content->as<Dictionary>() : nullptr;
    return dictionary ? std::optional(std::move(*dictionary)) : std::nullopt;
}

bool writeDictionary(const std::optional<std::string>& path, const Value& dictionary) {
    return path && writePropertyList(*path, dictionary);
}

/// Posting never blocks, so it may be done under a lock.
void announceChange() { platform::distributed_center::post("ListHasBeenUpdated"); }

/// Replaces a file that can't be read as a dictionary by an empty one.
Dictionary readOrReset(const std::optional<std::string>& path) {
    if (auto content = readDictionary(path)) {
        return *std::move(content);
    }
    writeDictionary(path, Dictionary());
    announceChange();
    return {};
}

// What the typed accessors make of a stored value; the catalogue's head lists the defaults.

bool booleanReading(const std::optional<Value>& stored) { return stored && stored->boolValue(); }

std::int64_t integerReading(const std::optional<Value>& stored) { return stored ? stored->integerValue() : 0; }

/// The stored form of an encoded text; nullopt if the text is absent or isn't UTF-8.
std::optional<std::string> toBase64(const std::optional<std::string>& text) {
    return text && platform::text::isValidUtf8(*text) ? std::optional(platform::base64::encode(*text)) : std::nullopt;
}

std::optional<std::string> fromBase64(const std::optional<Value>& stored, Undecodable undecodable) {
    const auto text = platform::textOf(stored);
    const auto bytes = text ? platform::base64::decode(*text) : std::nullopt;
    auto plain = bytes ? platform::text::decodeUtf8(*bytes) : std::nullopt;
    return plain || undecodable == Undecodable::absent ? plain : text;
}

/// "macOS" for a release that isn't listed.
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

/// The status file of that user; creates its folder. Other applications can store any name, so one that would lead out
/// of the support folder, or that holds a NUL, counts as absent.
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

HVLUserPrefManager& HVLUserPrefManager::select(int kind, Field<std::string>& firstPath) {
    const auto path = HVLFileManager::pathForApplicationFile(kind);
    firstPath.with([&path](std::optional<std::string>& first) {
        if (!first) {
            first = path;
        }
    });
    urlForPrefFile_.set(path);
    return *this;
}

Dictionary HVLUserPrefManager::getPrefDictionary() const {
    // Copied once, so that a selection on another thread can't redirect the reset to another file.
    const auto path = urlForPrefFile();
    if (auto content = readDictionary(path)) {
        return *std::move(content);
    }
    // Read again under the lock, as another thread may have repaired the file by a write.
    const std::lock_guard lock(writing_);
    return readOrReset(path);
}

std::optional<Value> HVLUserPrefManager::objectForKey(const std::string& key) const {
    // All applications of the product query the version before each read; nothing depends on the answer.
    static_cast<void>(macOSMinorVersion());
    auto found = getPrefDictionary().extract(key);
    return found ? std::optional(std::move(found.mapped())) : std::nullopt;
}

void HVLUserPrefManager::setObject(std::optional<Value> value, const std::string& forKey) {
    // Copied before waiting for the lock, during which another thread may select another file.
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
        // Decimal 777, and the suite's folder whichever file failed: all applications of the product do the same.
        platform::files::setPermissions(paths::suiteSupport, 777);
        writeDictionary(path, content);
        announceChange();
    }
}

#define BOOLEAN(key, getter, setter)                                                                                   \
    bool HVLUserPrefManager::getter() const { return booleanReading(objectForKey(key)); }                              \
    void HVLUserPrefManager::setter(bool value) { setObject(value, key); }
#define INTEGER(key, getter, setter)                                                                                   \
    std::int64_t HVLUserPrefManager::getter() const { return integerReading(objectForKey(key)); }                      \
    void HVLUserPrefManager::setter(std::int64_t value) { setObject(value, key); }
#define ENCODED(key, getter, setter, undecodable)                                                                      \
    std::optional<std::string> HVLUserPrefManager::getter() const {                                                    \
        return fromBase64(objectForKey(key), Undecodable::undecodable);                                                \
    }                                                                                                                  \
    void HVLUserPrefManager::setter(const std::optional<std::string>& text) {                                          \
        if (auto stored = toBase64(text)) {                                                                            \
            setObject(std::move(stored), key);                                                                         \
        }                                                                                                              \
    }
#define PLAIN_GETTER(key, getter)                                                                                      \
    std::optional<Value> HVLUserPrefManager::getter() const { return objectForKey(key); }
#define PLAIN(key, getter, setter)                                                                                     \
    PLAIN_GETTER(key, getter)                                                                                          \
    void HVLUserPrefManager::setter(std::optional<Value> value) { setObject(std::move(value), key); }
#define FIELD_GETTER(type, name)                                                                                       \
    std::optional<type> HVLUserPrefManager::name() const { return name##_.get(); }
#define FIELD_SETTER(type, name, setter)                                                                               \
    void HVLUserPrefManager::setter(std::optional<type> value) { name##_.set(std::move(value)); }
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
    // 0 for the whole range, as the sum wraps.
    const std::uint32_t width = to - low + 1;
    return low + (width == 0 ? random : random % width);
}

std::uint32_t HVLUserPrefManager::getPortNumber() const { return getRandomNumberBetween(10000, 65535); }

bool HVLUserPrefManager::isMacProxySetUp() const {
    // Only looked up in the proxy settings; nothing is sent there.
    const std::string secure = platform::network::proxyType("https://www.example.com");
    if (secure != "kCFProxyTypeNone") {
        return secure == "kCFProxyTypeHTTPS";
    }
    return platform::network::proxyType("http://www.example.com") == "kCFProxyTypeHTTP";
}

std::optional<std::string> HVLUserPrefManager::wolStatus() const {
    const std::string file = wolFile(loggedInuserName());
    if (!platform::files::exists(file)) {
        // Unlike a replace, this keeps a status that someone has written since the check.
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
