// What a system that is just starting may not have yet, and how to wait for it. Main thread only.
#pragma once

#include "platform/run_loop.h"

#include <functional>
#include <memory>

namespace havrel {

/// Whether the system has been up for less than a minute, so that drivers and network may just be late.
bool isSystemStarting();

/// Whether there is no default route yet, but the system is just starting.
bool isNetworkExpected();

/// Blocks while the network is expected, and a second more: name servers come a moment after a route.
void awaitNetwork();

/// Work that the main loop does once, when what it needs is there or no longer expected. Destroyed earlier, it isn't
/// done.
class DeferredWork {
  public:
    /// Looks once a second. The work is done at the second look in a row that finds `isExpected` false.
    DeferredWork(std::function<bool()> isExpected, std::function<void()> work);

  private:
    void look();

    std::function<bool()> isExpected_;
    std::function<void()> work_;
    bool isDue_ = false;
    std::unique_ptr<platform::RepeatingTimer> timer_;
};

} // namespace havrel
