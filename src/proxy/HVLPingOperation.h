// One ping of one proxy, as a unit of work for an operation queue.
#pragma once

#include "foundation/operation_queue.h"
#include "proxy/HVLPingHost.h"

#include <atomic>
#include <memory>

namespace havrel {

class HVLPingOperation : public platform::Operation {
  public:
    /// Shares ownership of the record, as a ping may outlive the pass that queued it.
    static std::shared_ptr<HVLPingOperation> initWithPingHost(HVLPingHostPtr pingHost);

    /// Measures the record unless cancelled before; a running ping isn't interrupted.
    void main() override;

    /// Whether it has measured the record. Thread-safe.
    bool hasAnswered() const { return hasAnswered_; }

  private:
    HVLPingHostPtr pingHost_;
    std::atomic<bool> hasAnswered_{false};
};

} // namespace havrel
