// An ordered list of proxy records, with the proxy-list file format and the texts made from it.
#pragma once

#include "foundation/value.h"
#include "proxy/HVLPingHost.h"

#include <cstddef>
#include <string>
#include <vector>

namespace havrel {

/// Copying a list shares its records. A list belongs to one thread at a time; its records may get new latencies from
/// others meanwhile. Records are never null: adding one raises, as an index out of range does (platform::Exception).
class HVLPingMutableArray {
  public:
    using Storage = std::vector<HVLPingHostPtr>;

    HVLPingMutableArray() = default;

    /// The records of a proxy-list file; empty when there is no readable one. A key that is missing or holds no text
    /// leaves its field absent (no latency: 0), an element that is no dictionary is passed over, and so is what
    /// follows the first 10,000 records or 4 MiB of text.
    static HVLPingMutableArray initWithPlistWithPath(const std::string& path);
    /// From `"name":"latency"` pairs between commas, braces ignored.
    static HVLPingMutableArray initWithPingStringWithCommaSeprator(const std::string& text);
    /// From `name:latency` pairs between blanks, braces ignored.
    static HVLPingMutableArray initWithPingStringWithSpaceSeprator(const std::string& text);

    /// Appends a record without address for each piece that has a ":".
    void createArrayFromString(const std::vector<std::string>& pieces);

    std::size_t count() const { return mutableStorage_.size(); }

    const HVLPingHostPtr& objectAtIndex(std::size_t index) const;
    void insertObject(HVLPingHostPtr record, std::size_t index);
    void removeObjectAtIndex(std::size_t index);
    /// Raises unless the whole range lies within the list; an empty range at the end does.
    void removeObjectsInRange(std::size_t location, std::size_t length);
    /// Every occurrence of that very record.
    void removeObject(const HVLPingHostPtr& record);
    void addObject(HVLPingHostPtr record);
    void removeLastObject();
    void replaceObjectAtIndex(std::size_t index, HVLPingHostPtr record);

    Storage::const_iterator begin() const { return mutableStorage_.begin(); }

    Storage::const_iterator end() const { return mutableStorage_.end(); }

    /// The records of another list whose latency is not 0, in its order.
    static Storage removeAllZeroPings(const HVLPingMutableArray& list);
    /// Drops the records with latency 0 from this list.
    void removeAllZeroPings();
    /// Ascending and stable, by the latencies as they stand at the call.
    void sortPingArrayByMinimumPingTime();

    /// The first record with a latency other than 0, else null.
    HVLPingHostPtr getMinimumPingTimeHost() const;
    /// The first record with that host name or mapped name, else null. An absent argument finds nothing in any search.
    HVLPingHostPtr findHost(const HVLPingHost::Text& name) const;
    HVLPingHostPtr findHostByIP(const HVLPingHost::Text& address) const;
    HVLPingHostPtr findHostByMappedName(const HVLPingHost::Text& name) const;

    /// A new list of the same records.
    HVLPingMutableArray copyArray() const;
    std::size_t countNoZeroPingTimeProxies() const;

    /// `a:5 b:7 `, a blank behind each item.
    std::string toJSONFormat() const;
    /// `"a":"5","b":"7"`
    std::string toRegisterJSONFormat() const;
    /// `HostProxies State : a:5,b:7,`
    std::string getPintableString() const;

    /// Has no visible effect.
    void print() const {}

    /// The root array of the file format; the latency is the low 32 bits as signed text. Raises when a record lacks a
    /// name, an address or a mapped name.
    platform::Array getPlistArray() const;
    /// Replaces the file atomically; false when it could not. Raises as above, before anything is written.
    bool writeProxyOnFile(const std::string& path) const;

    /// A flag for the list's users; no operation reads or sets it.
    bool isPingsAreSorted = false;

  private:
    explicit HVLPingMutableArray(Storage records) : mutableStorage_(std::move(records)) {}

    Storage mutableStorage_;
};

} // namespace havrel
