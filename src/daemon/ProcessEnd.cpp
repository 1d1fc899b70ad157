#include "daemon/ProcessEnd.h"

#include "logging/HVLLogger.h"
#include "platform/files.h"
#include "platform/notifications.h"

#include <cstdlib>

namespace havrel {

void endProcess(int status) {
    HVLLogger::drainAll();
    platform::distributed_center::flush();
    platform::files::endWrites();
    std::_Exit(status);
}

} // namespace havrel
