// One relay proxy: its names, its address and its last measured latency.
#pragma once

#include "foundation/guarded.h"
#include "foundation/value.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace havrel {

/// Lists share their records. Thread-safe, as ping workers write latencies while other threads read. Texts are nullopt
/// when absent, which differs from empty: a record that lacks a text can't be written to a file.
class HVLPingHost {
  public:
    /// Fields without an argument stay absent, the latency 0.
    static std::shared_ptr<HVLPingHost> initWithHostName(std::optional<std::string> hostName,
                                                         std::optional<std::string> ipAddress,
                                                         std::optional<std::string> mappedHostName = {});
    /// The latency is a text or a number, read as a signed 32-bit number and sign-extended: "-1" becomes 2^64 - 1.
    static std::shared_ptr<HVLPingHost> initWithHostName(std::optional<std::string> hostName,
                                                         std::optional<std::string> ipAddress,
                                                         std::optional<std::string> mappedHostName,
                                                         const std::optional<platform::Value>& pingTime);

    /// A new record with only the name and the address of this one.
    std::shared_ptr<HVLPingHost> copyWithZone() const;

    /// Pings the address and stores the minimum round-trip time, at least 1; keeps the old latency if there was no
    /// reply. Blocks for about six seconds. Whether there was one; never throws.
    bool pingToProxyNow();

    /// `name:latency`, the latency signed.
    std::string toJSON() const;
    /// `"name":"latency"`, the latency unsigned.
    std::string toRegisterJSON() const;

    /// A new record with the name and address of this one and the sum of both latencies; null if either is 0.
    std::shared_ptr<HVLPingHost> addHostForSummetion(const HVLPingHost& other) const;

    /// The proxy's name at the web service.
    std::optional<std::string> hostName() const { return hostName_.get(); }

    void setHostName(std::optional<std::string> value) { hostName_.set(std::move(value)); }

    /// What is pinged: a host name or a dotted address.
    std::optional<std::string> ipAddr() const { return ipAddr_.get(); }

    void setIpAddr(std::optional<std::string> value) { ipAddr_.set(std::move(value)); }

    /// In whole milliseconds; 0 means not measured or unreachable.
    std::uint64_t pingTime() const { return pingTime_; }

    void setPingTime(std::uint64_t value) { pingTime_ = value; }

    /// Never set by the daemon.
    std::optional<std::string> proxyName() const { return proxyName_.get(); }

    void setProxyName(std::optional<std::string> value) { proxyName_.set(std::move(value)); }

    /// A second name by which the proxy can be found.
    std::optional<std::string> mappHostName() const { return mappHostName_.get(); }

    void setMappHostName(std::optional<std::string> value) { mappHostName_.set(std::move(value)); }

  private:
    platform::Guarded<std::optional<std::string>> hostName_;
    platform::Guarded<std::optional<std::string>> ipAddr_;
    std::atomic<std::uint64_t> pingTime_{0};
    platform::Guarded<std::optional<std::string>> proxyName_;
    platform::Guarded<std::optional<std::string>> mappHostName_;
};

using HVLPingHostPtr = std::shared_ptr<HVLPingHost>;

} // namespace havrel
