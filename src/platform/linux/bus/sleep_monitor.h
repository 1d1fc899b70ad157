// The machine's sleep and wake-up, as the login manager announces them.
#pragma once

#include "foundation/observer_list.h"
#include "platform/linux/bus/bus_connection.h"
#include "platform/linux/files/descriptor.h"

#include <memory>
#include <string>

namespace platform {

/// While somebody observes will-sleep, this holds a delay lock of the login manager's, and releases it when the
/// handlers have returned and the bus has passed on their posts. Without a login manager it waits for one to appear.
class SleepMonitor : private BusListener {
  public:
    static SleepMonitor& shared();

    /// Thread-safe. The handler runs on the main run loop.
    [[nodiscard]] ObservationPtr addObserver(const std::string& name, NotificationHandler handler);

  private:
    /// Released, by closing it, when the last owner is destroyed: this monitor, or a sleep that is being announced.
    using Lock = std::shared_ptr<Descriptor>;

    SleepMonitor();
    void connected(sd_bus& bus) override;
    void disconnected() override;

    void watch(sd_bus& bus);
    void setManager(sd_bus& bus, const std::string& uniqueName);
    void updateLock(sd_bus& bus);
    void prepareForSleep(sd_bus& bus, bool begins);
    void takeLock(sd_bus_message& reply);

    static int onManagerReply(sd_bus_message* reply, void* self, sd_bus_error* error);
    static int onManagerChanged(sd_bus_message* signal, void* self, sd_bus_error* error);
    static int onPrepareForSleep(sd_bus_message* signal, void* self, sd_bus_error* error);
    static int onLockReply(sd_bus_message* reply, void* self, sd_bus_error* error);

    ObserverList observers_;

    // The bus thread's own.
    std::string manager_; // its unique name on the bus; empty when there is none
    BusSlot managerChanged_;
    BusSlot managerCall_;
    BusSlot prepareForSleep_;
    BusSlot lockCall_;
    Lock lock_;
};

} // namespace platform
