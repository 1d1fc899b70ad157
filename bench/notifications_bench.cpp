// The time from a post to its handler, one notification after the other. For comparison: a bare sd-bus client that
// sends signals to itself on the same bus.
#include "platform/notifications.h"
#include "platform/run_loop.h"
#include "trial/support/private_bus.h"
#include "trial/support/temporary_folder.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <systemd/sd-bus.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using platform::RunLoop;
namespace center = platform::distributed_center;

constexpr std::size_t notifications = 10'000;

const std::string& busAddress() {
    static const trial::TemporaryFolder folder;
    static trial::PrivateBus bus(folder.path());
    if (bus.pid() < 0) {
        setenv("DBUS_SYSTEM_BUS_ADDRESS", bus.address().c_str(), 1);
        bus.start();
    }
    return bus.address();
}

/// The times between posts and handlers.
class Times {
  public:
    void posted() { start_ = Clock::now(); }

    /// False once there are enough.
    bool handled() {
        times_.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start_).count());
        return times_.size() < notifications;
    }

    void show(benchmark::State& state) {
        std::sort(times_.begin(), times_.end());
        state.counters["median_us"] = times_[times_.size() / 2];
        state.counters["p99_us"] = times_[times_.size() * 99 / 100];
        state.counters["max_us"] = times_.back();
    }

  private:
    Clock::time_point start_;
    std::vector<double> times_;
};

void postToHandler(benchmark::State& state) {
    busAddress();
    for ([[maybe_unused]] const auto once : state) {
        Times times;
        const auto post = [&] {
            times.posted();
            center::post("Bench", {}, platform::Dictionary{{"type", "NSWorkspaceDidWakeNotification"}});
        };
        const auto observation = center::addObserver("Bench", [&](const platform::Notification&) {
            if (times.handled()) {
                post();
            } else {
                RunLoop::main().stop();
            }
        });
        center::flush();
        post();
        RunLoop::main().run();
        times.show(state);
    }
}

struct BareClient {
    sd_bus* bus = nullptr;
    Times times;
    bool done = false;

    void post() {
        times.posted();
        sd_bus_emit_signal(bus, "/bench", "com.Dravex.Bench", "Posted", "ssa{sv}u", "Bench", "", 1, "type", "s",
                           "NSWorkspaceDidWakeNotification", 3);
    }

    static int onPosted(sd_bus_message* /*signal*/, void* data, sd_bus_error* /*error*/) {
        auto& self = *static_cast<BareClient*>(data);
        self.done = !self.times.handled();
        if (!self.done) {
            self.post();
        }
        return 0;
    }
};

void bareSignal(benchmark::State& state) {
    for ([[maybe_unused]] const auto once : state) {
        BareClient client;
        sd_bus_new(&client.bus);
        sd_bus_set_address(client.bus, busAddress().c_str());
        sd_bus_set_bus_client(client.bus, 1);
        sd_bus_start(client.bus);
        sd_bus_match_signal(client.bus, nullptr, nullptr, "/bench", "com.Dravex.Bench", "Posted", BareClient::onPosted,
                            &client);
        client.post();
        while (!client.done) {
            if (sd_bus_process(client.bus, nullptr) == 0) {
                sd_bus_wait(client.bus, UINT64_MAX);
            }
        }
        client.times.show(state);
        sd_bus_flush_close_unref(client.bus);
    }
}

BENCHMARK(bareSignal)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(postToHandler)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

BENCHMARK_MAIN();
