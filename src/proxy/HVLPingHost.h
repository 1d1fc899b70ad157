// One relay proxy: its names, its address and how fast it last answered.
#pragma once

#include "foundation/value.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace havrel {

/// Lists share records, and ping workers write into them while other threads read; so every field may be read and
/// set from any thread. An absent text is not an empty one: a record that lacks a text cannot be written to a file.
class HVLPingHost {
  public:
    using Text = std::optional<std::string>;

    /// What an initialiser doesn't name stays absent, the latency 0.
    static std::shared_ptr<HVLPingHost> initWithHostName(Text hostName, Text ipAddress, Text mappedHostName = {});
    /// The latency is a text or a number, taken as a 32-bit number and widened with its sign: "-1" becomes 2^64 - 1.
    static std::shared_ptr<HVLPingHost> initWithHostName(Text hostName, Text ipAddress, Text mappedHostName,
                                                         const std::optional<platform::Value>& pingTime);

    /// A new record with this one's name and address and nothing else.
    std::shared_ptr<HVLPingHost> copyWithZone() const;

    /// Pings the address and stores its minimum round-trip time, at least 1; keeps the old latency without a reply.
    /// Blocks for about six seconds. Never throws.
    void pingToProxyNow();

    /// `name:latency`, the latency signed.
    std::string toJSON() const;
    /// `"name":"latency"`, the latency unsigned.
    std::string toRegisterJSON() const;

    /// A new record with this one's name and address and the sum of both latencies; null when either is 0.
    std::shared_ptr<HVLPingHost> addHostForSummetion(const HVLPingHost& other) const;

    /// The name under which the service lists the proxy.
    Text hostName() const { return copyOf(hostName_); }

    void setHostName(Text value) { assign(hostName_, std::move(value)); }

    /// What is pinged: a host name or a dotted address.
    Text ipAddr() const { return copyOf(ipAddr_); }

    void setIpAddr(Text value) { assign(ipAddr_, std::move(value)); }

    /// In whole milliseconds; 0: not measured or unreachable.
    std::uint64_t pingTime() const { return pingTime_; }

    void setPingTime(std::uint64_t value) { pingTime_ = value; }

    /// Carried along, never filled.
    Text proxyName() const { return copyOf(proxyName_); }

    void setProxyName(Text value) { assign(proxyName_, std::move(value)); }

    /// A second name by which the proxy is found.
    Text mappHostName() const { return copyOf(mappHostName_); }

    void setMappHostName(Text value) { assign(mappHostName_, std::move(value)); }

  private:
    Text copyOf(const Text& field) const {
        const std::lock_guard lock(mutex_);
        return field;
    }

    void assign(Text& field, Text value) {
        const std::lock_guard lock(mutex_);
        field = std::move(value);
    }

    mutable std::mutex mutex_;
    Text hostName_;
    Text ipAddr_;
    std::atomic<std::uint64_t> pingTime_{0};
    Text proxyName_;
    Text mappHostName_;
};

using HVLPingHostPtr = std::shared_ptr<HVLPingHost>;

} // namespace havrel
