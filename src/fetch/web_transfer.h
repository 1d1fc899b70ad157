// HTTPS requests by libcurl. For one thread.
#pragma once

#include "fetch/message.h"

namespace platform::web_transfer {

/// Does what network::sendSynchronousRequest promises.
fetch::Outcome perform(const fetch::Request& request);

} // namespace platform::web_transfer
