// The smallest process that hears notifications: one thread, one connection, one match. For daemon_bench to compare
// with.
#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

namespace {

int onPosted(sd_bus_message* /*signal*/, void* /*data*/, sd_bus_error* /*error*/) { return 0; }

} // namespace

int main() {
    sd_event* loop = nullptr;
    sd_bus* bus = nullptr;
    const bool listens = sd_event_default(&loop) >= 0 && sd_bus_open_system(&bus) >= 0 &&
                         sd_bus_match_signal(bus, nullptr, nullptr, "/com/Dravex/DistributedNotifications",
                                             "com.Dravex.DistributedNotifications", "Posted", onPosted, nullptr) >= 0 &&
                         sd_bus_attach_event(bus, loop, SD_EVENT_PRIORITY_NORMAL) >= 0;
    return listens ? sd_event_loop(loop) : 1;
}
