// What the ping program writes.
#include "fakes/fake_processes.h"
#include "fuzz/require.h"
#include "proxy/HVLPingHost.h"

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string output(reinterpret_cast<const char*>(data), size);
    fakes::processes::onPing([&](const std::string&) { return std::string(output); });
    const auto host = havrel::HVLPingHost::initWithHostName("name", "192.0.2.1", "mapped", 7);
    host->pingToProxyNow();
    // Without a minimum the latency stays.
    require(host->pingTime() == 7 || output.find("min/avg/max/stddev =") != std::string::npos);
    fakes::processes::reset();
    return 0;
}
