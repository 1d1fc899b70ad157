#include "proxy/HVLPingOperation.h"

namespace havrel {

std::shared_ptr<HVLPingOperation> HVLPingOperation::initWithPingHost(HVLPingHostPtr pingHost) {
    auto operation = std::make_shared<HVLPingOperation>();
    operation->pingHost_ = std::move(pingHost);
    return operation;
}

void HVLPingOperation::main() {
    if (!isCancelled()) {
        hasAnswered_ = pingHost_->pingToProxyNow();
    }
}

} // namespace havrel
