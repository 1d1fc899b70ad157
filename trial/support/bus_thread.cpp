#include "trial/support/bus_thread.h"

#include <utility>

namespace trial {

using platform::check;

BusThread::BusThread(const std::string& address, const std::function<platform::BusSlot(sd_bus& bus)>& setUp) {
    sd_bus* bus = nullptr;
    check(sd_bus_new(&bus), "sd_bus_new");
    bus_.reset(bus);
    check(sd_bus_set_address(bus, address.c_str()), "sd_bus_set_address");
    check(sd_bus_set_bus_client(bus, 1), "sd_bus_set_bus_client");
    check(sd_bus_start(bus), "sd_bus_start");
    slot_ = setUp(*bus);
    check(sd_bus_attach_event(bus, eventLoop(loop_).get(), SD_EVENT_PRIORITY_NORMAL), "sd_bus_attach_event");
    thread_ = std::thread([this] { loop_.run(); });
}

BusThread::~BusThread() {
    loop_.perform([this] { keepsRunning_.reset(); });
    thread_.join();
    slot_.reset();
    sd_bus_detach_event(bus_.get());
}

void BusThread::perform(std::function<void(sd_bus& bus)> work) {
    loop_.perform([this, work = std::move(work)] { work(*bus_); });
}

} // namespace trial
