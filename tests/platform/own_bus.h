// The bus that this process's one connection goes to.
#pragma once

#include "trial/support/private_bus.h"
#include "trial/support/temporary_folder.h"

#include <cstdlib>

namespace support {

/// Started. Whoever stops it starts it again. The first call is made before the first use of a notification center.
inline trial::PrivateBus& ownBus() {
    static const trial::TemporaryFolder folder;
    static trial::PrivateBus bus(folder.path());
    if (bus.pid() < 0) {
        ::setenv("DBUS_SYSTEM_BUS_ADDRESS", bus.address().c_str(), 1);
        bus.start();
    }
    return bus;
}

} // namespace support
