// Proxy lists as tests write and read them: one text for a whole list.
#pragma once

#include "proxy/HVLPingMutableArray.h"

namespace support {

/// From "a:5 b:0": records with those latencies, the addresses "ip-a", "ip-b", the mapped names "m-a", "m-b".
inline havrel::HVLPingMutableArray pings(const std::string& text) {
    auto list = havrel::HVLPingMutableArray::initWithPingStringWithSpaceSeprator(text);
    for (const auto& host : list) {
        host->setIpAddr("ip-" + *host->hostName());
        host->setMappHostName("m-" + *host->hostName());
    }
    return list;
}

/// The file's list as "a:5 b:0 ".
inline std::string storedPings(const std::string& path) {
    return havrel::HVLPingMutableArray::initWithPlistWithPath(path).toJSONFormat();
}

} // namespace support
