// Hardware facts as a registry of entries: find by class, go to the parent, read a property. From any thread;
// nothing is kept between calls.
#pragma once

#include "foundation/value.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace platform::device_registry {

using Status = std::int32_t;

inline constexpr Status success = 0;
/// The only failure there is.
inline constexpr Status failure = 5;

/// An entry: "IOEthernetInterface" with its parent, the network controller, or "IOPlatformExpertDevice".
class Entry {
  public:
    Entry(std::string className, std::string path) : className_(std::move(className)), path_(std::move(path)) {}

    const std::string& className() const { return className_; }

    const std::string& path() const { return path_; }

  private:
    std::string className_;
    std::string path_;
};

/// A matching dictionary for a class; what stands under "IOPropertyMatch" restricts the search.
std::optional<Dictionary> matching(const std::string& className);

/// Every entry that matches, in the system's order.
Status matchingServices(const Dictionary& matching, std::vector<Entry>& entries);
/// The first entry that matches, or nothing.
std::optional<Entry> matchingService(const Dictionary& matching);

/// The entry's parent in the named plane ("IOService").
Status parentEntry(const Entry& entry, const std::string& plane, std::optional<Entry>& parent);

/// A copy of the property, or nothing: "IOMACAddress" (data) of a controller, "IOPlatformSerialNumber" (text) of
/// the platform expert, "IOPrimaryInterface" (boolean) of an interface.
std::optional<Value> property(const Entry& entry, const std::string& name);

} // namespace platform::device_registry
