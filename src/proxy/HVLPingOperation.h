// One ping of one proxy, as a unit of work for an operation queue.
#pragma once

#include "foundation/operation_queue.h"
#include "proxy/HVLPingHost.h"

namespace havrel {

class HVLPingOperation : public platform::Operation {
  public:
    /// Shares the record: a ping that outlives its pass still has one to write into.
    static std::shared_ptr<HVLPingOperation> initWithPingHost(HVLPingHostPtr pingHost);

    /// Measures the record unless cancelled before; a ping that has begun runs to its end.
    void main() override;

    const HVLPingHostPtr& pingHost() const { return pingHost_; }

  private:
    HVLPingHostPtr pingHost_;
};

} // namespace havrel
