// An ordered list of proxy records, its file format and its text forms.
#pragma once

#include "foundation/value.h"
#include "proxy/HVLPingHost.h"

#include <cstddef>
#include <string>
#include <vector>

namespace havrel {

/// Copying a list shares its records. Not thread-safe, though other threads may change the records' latencies
/// meanwhile. An index out of range and adding a null record throw platform::Exception. Searches return null if nothing
/// matches.
class HVLPingMutableArray {
  public:
    using Storage = std::vector<HVLPingHostPtr>;

    HVLPingMutableArray() = default;

    /// The records of a proxy-list file; empty if it can't be read. A text that is missing, or isn't a text, is absent,
    /// a missing latency 0. Elements that aren't dictionaries are skipped, and reading ends after 10,000 records.
    /// Throws as platform::files::read does.
    static HVLPingMutableArray initWithPlistWithPath(const std::string& path);
    /// From `"name":"latency"` pairs between commas, braces ignored.
    static HVLPingMutableArray initWithPingStringWithCommaSeprator(const std::string& text);
    /// From `name:latency` pairs between blanks, braces ignored.
    static HVLPingMutableArray initWithPingStringWithSpaceSeprator(const std::string& text);

    /// Appends a record without an address for each piece that contains a ":".
    void createArrayFromString(const std::vector<std::string>& pieces);

    std::size_t count() const { return mutableStorage_.size(); }

    const HVLPingHostPtr& objectAtIndex(std::size_t index) const;
    void insertObject(HVLPingHostPtr record, std::size_t index);
    void removeObjectAtIndex(std::size_t index);
    /// Throws if any part of the range is outside the list.
    void removeObjectsInRange(std::size_t location, std::size_t length);
    /// Removes every occurrence of this record object.
    void removeObject(const HVLPingHostPtr& record);
    void addObject(HVLPingHostPtr record);
    void removeLastObject();
    void replaceObjectAtIndex(std::size_t index, HVLPingHostPtr record);

    Storage::const_iterator begin() const { return mutableStorage_.begin(); }

    Storage::const_iterator end() const { return mutableStorage_.end(); }

    /// The records of `list` with a latency other than 0, in order.
    static Storage removeAllZeroPings(const HVLPingMutableArray& list);
    /// The same in place.
    void removeAllZeroPings();
    /// Stable, ascending.
    void sortPingArrayByMinimumPingTime();

    /// The first record with a latency other than 0.
    HVLPingHostPtr getMinimumPingTimeHost() const;
    /// The first record with that host name or mapped name; nullopt matches nothing, here and below.
    HVLPingHostPtr findHost(const std::optional<std::string>& name) const;
    HVLPingHostPtr findHostByIP(const std::optional<std::string>& address) const;
    HVLPingHostPtr findHostByMappedName(const std::optional<std::string>& name) const;

    /// A new list of the same records.
    HVLPingMutableArray copyArray() const;
    std::size_t countNoZeroPingTimeProxies() const;

    /// `a:5 b:7 `, with a blank after each item.
    std::string toJSONFormat() const;
    /// `"a":"5","b":"7"`
    std::string toRegisterJSONFormat() const;
    /// `HostProxies State : a:5,b:7,`
    std::string getPintableString() const;

    /// Does nothing.
    void print() const {}

    /// The root array of the file format; latencies are the low 32 bits as signed text. Throws platform::Exception if a
    /// record lacks a host name, an address or a mapped name.
    platform::Array getPlistArray() const;
    /// Replaces the file atomically; false on failure. Throws as `getPlistArray` does, before anything is written.
    bool writeProxyOnFile(const std::string& path) const;

    /// Not used by any operation.
    bool isPingsAreSorted = false;

  private:
    explicit HVLPingMutableArray(Storage records) : mutableStorage_(std::move(records)) {}

    Storage mutableStorage_;
};

} // namespace havrel
