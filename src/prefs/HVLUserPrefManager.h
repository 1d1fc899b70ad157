// The settings that the product's applications share, in property lists that each of them reads and writes.
#pragma once

#include "foundation/value.h"

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

namespace havrel {

/// One object that serves one file at a time: select the store, then use it at once, as in
/// `sharedHVLUserPrefManager().hostPref().uniqueID()`. Nothing is cached; every read sees what any application wrote
/// last. Errors show only as absent values. Every operation may be called from any thread, yet a selection
/// holds for all of them.
class HVLUserPrefManager {
  public:
    static HVLUserPrefManager& sharedHVLUserPrefManager();

    HVLUserPrefManager(const HVLUserPrefManager&) = delete;
    HVLUserPrefManager& operator=(const HVLUserPrefManager&) = delete;

    /// Selects the file of the host's preferences, the viewer's, or the host's backup, for every user of the object.
    HVLUserPrefManager& hostPref();
    HVLUserPrefManager& viewerPref();
    HVLUserPrefManager& hostBackupPref();

    /// The current file's whole content. A file that is missing, unreadable, damaged or no dictionary is replaced by an
    /// empty one and "ListHasBeenUpdated" is posted.
    platform::Dictionary getPrefDictionary() const;
    /// The value stored under the key in the current file.
    std::optional<platform::Value> objectForKey(const std::string& key) const;
    /// Stores the value in the current file and posts "ListHasBeenUpdated", even when the write fails; a failed one is
    /// tried and announced once more. An absent value removes the key, which is not announced. No other thread's
    /// write of another key is lost.
    void setObject(std::optional<platform::Value> value, const std::string& forKey);

    // The accessors of catalogue.def, which says what each kind of them does.
#define BOOLEAN(key, getter, setter)                                                                                   \
    bool getter() const;                                                                                               \
    void setter(bool value);
#define INTEGER(key, getter, setter)                                                                                   \
    std::int64_t getter() const;                                                                                       \
    void setter(std::int64_t value);
#define ENCODED(key, getter, setter, broken)                                                                           \
    std::optional<std::string> getter() const;                                                                         \
    void setter(const std::optional<std::string>& text);
#define PLAIN_GETTER(key, getter) std::optional<platform::Value> getter() const;
#define PLAIN(key, getter, setter)                                                                                     \
    std::optional<platform::Value> getter() const;                                                                     \
    void setter(std::optional<platform::Value> value);
#define FIELD_GETTER(type, name) std::optional<type> name() const;
#define FIELD_SETTER(type, name, setter) void setter(std::optional<type> value);
#define FIELD(type, name, setter)                                                                                      \
    std::optional<type> name() const;                                                                                  \
    void setter(std::optional<type> value);
#include "prefs/catalogue.def"

    /// Posts "RefreshHostDescription" with the description as its object, then stores it: who listens has the new text
    /// before the file has.
    void setHostDecription(const std::optional<platform::Value>& description);

    /// The system's version as "major.minor.patch"; a part that cannot be read is 0.
    std::string MacOSVersionWithAllDigits() const;
    std::int64_t macOSMajorVersion() const;
    std::int64_t macOSMinorVersion() const;
    /// The system's release name and version, as in "macOS Catalina 10.15.7".
    std::string oSDetails() const;
    /// The stored `havrelVersion` as an integer.
    std::int64_t currentVersionInIntegerFormat() const;
    /// The digits of the text read as one number: 7673 for "7.6.73", 0 when there is none.
    std::int64_t integerFormatOfVersion(const std::string& text) const;

    /// Ten random ASCII letters and digits.
    std::string getRandomString() const;
    /// A random number in [low, to].
    std::uint32_t getRandomNumberBetween(std::uint32_t low, std::uint32_t to) const;
    /// A random number in [10000, 65535].
    std::uint32_t getPortNumber() const;

    /// Whether the system's settings name a web proxy by hand; an automatic configuration counts as none.
    bool isMacProxySetUp() const;

    /// The wake-on-LAN status, kept in a file of its own that is made empty, and announced, when it is missing.
    /// Absent when the file cannot be read as UTF-8.
    std::optional<std::string> wolStatus() const;
    /// Replaces the status and posts "ListHasBeenUpdated"; errors are ignored.
    void setwolStatus(const std::string& text);

  private:
    HVLUserPrefManager() = default;

    HVLUserPrefManager& select(int kind, std::optional<std::string>& firstPath);

    /// Held while a file is read, changed and replaced, so that this process never loses a change of its own.
    mutable std::mutex writing_;
    /// Held while a field is copied.
    mutable std::mutex fields_;

#define FIELD_GETTER(type, name) std::optional<type> name##_;
#define FIELD_SETTER(type, name, setter) std::optional<type> name##_;
#define FIELD(type, name, setter) std::optional<type> name##_;
#include "prefs/catalogue.def"
};

/// The shared object with the host's preferences selected.
inline HVLUserPrefManager& hostPreferences() { return HVLUserPrefManager::sharedHVLUserPrefManager().hostPref(); }

} // namespace havrel
