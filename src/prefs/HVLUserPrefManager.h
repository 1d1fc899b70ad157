// The settings that the product's applications share in property-list files.
#pragma once

#include "foundation/guarded.h"
#include "foundation/value.h"

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

namespace havrel {

/// One shared object serves one file at a time: select a store, then use it at once, as in
/// `sharedHVLUserPrefManager().hostPref().uniqueID()`. Nothing is cached: each read parses the file, each write
/// replaces it. Values are nullopt when absent. Thread-safe, but all threads share the selection. Nothing reports an
/// error, and everything that reads the file throws platform::Exception only when it can't be read at the moment, for
/// want of descriptors or memory or because the disk fails; the file then stays as it is.
class HVLUserPrefManager {
  public:
    static HVLUserPrefManager& sharedHVLUserPrefManager();

    HVLUserPrefManager(const HVLUserPrefManager&) = delete;
    HVLUserPrefManager& operator=(const HVLUserPrefManager&) = delete;

    /// Select the host's preferences, the viewer's, or the host's backup.
    HVLUserPrefManager& hostPref();
    HVLUserPrefManager& viewerPref();
    HVLUserPrefManager& hostBackupPref();

    /// The whole content of the selected file. If the file is missing or damaged, or its root isn't a dictionary, it is
    /// replaced by an empty dictionary and "ListHasBeenUpdated" is posted.
    platform::Dictionary getPrefDictionary() const;
    std::optional<platform::Value> objectForKey(const std::string& key) const;
    /// Stores the value in the selected file, then posts "ListHasBeenUpdated" whether that worked or not. A failed
    /// write is retried and announced once. nullopt removes the key, without a post. Reading, changing and replacing
    /// the file is one critical section of this process.
    void setObject(std::optional<platform::Value> value, const std::string& forKey);

    // The accessors of catalogue.def; its head describes each kind and its default.
#define BOOLEAN(key, getter, setter)                                                                                   \
    bool getter() const;                                                                                               \
    void setter(bool value);
#define INTEGER(key, getter, setter)                                                                                   \
    std::int64_t getter() const;                                                                                       \
    void setter(std::int64_t value);
#define ENCODED(key, getter, setter, undecodable)                                                                      \
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

    /// Posts "RefreshHostDescription" with the description as its object, then stores it, in this order.
    void setHostDecription(const std::optional<platform::Value>& description);

    /// "major.minor.patch" of the operating system; a part that can't be read is 0.
    std::string MacOSVersionWithAllDigits() const;
    std::int64_t macOSMajorVersion() const;
    std::int64_t macOSMinorVersion() const;
    /// The release name and version, as in "macOS Catalina 10.15.7".
    std::string oSDetails() const;
    /// `integerFormatOfVersion` of `havrelVersion`.
    std::int64_t currentVersionInIntegerFormat() const;
    /// The ASCII digits of the text as one number: 7673 for "7.6.73", 0 if there are none.
    std::int64_t integerFormatOfVersion(const std::string& text) const;

    /// Ten random ASCII letters and digits.
    std::string getRandomString() const;
    /// In [low, to].
    std::uint32_t getRandomNumberBetween(std::uint32_t low, std::uint32_t to) const;
    /// A random port in [10000, 65535].
    std::uint32_t getPortNumber() const;

    /// Whether the system has a manually configured web proxy; automatic configuration doesn't count.
    bool isMacProxySetUp() const;

    /// The wake-on-LAN status, kept in a file of its own. A missing file is created empty and announced; nullopt if it
    /// can't be read as UTF-8.
    std::optional<std::string> wolStatus() const;
    /// Replaces the status, then posts "ListHasBeenUpdated".
    void setwolStatus(const std::string& text);

  private:
    HVLUserPrefManager() = default;

    template <typename T>
    using Field = platform::Guarded<std::optional<T>>;

    HVLUserPrefManager& select(int kind, Field<std::string>& firstPath);

    /// Held from reading a file until it is replaced.
    mutable std::mutex writing_;

#define FIELD_GETTER(type, name) Field<type> name##_;
#define FIELD_SETTER(type, name, setter) Field<type> name##_;
#define FIELD(type, name, setter) Field<type> name##_;
#include "prefs/catalogue.def"
};

/// The shared object with the host's preferences selected.
inline HVLUserPrefManager& hostPreferences() { return HVLUserPrefManager::sharedHVLUserPrefManager().hostPref(); }

} // namespace havrel
