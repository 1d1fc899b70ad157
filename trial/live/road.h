// How far the proxy list has come on its road from the service's answer to the removed marker.
#pragma once

#include "trial/support/trial_root.h"

#include <cstddef>
#include <string>
#include <vector>

namespace trial {

class Road {
  public:
    Road(const TrialRoot& root, std::size_t listedProxies) : root_(root), listedProxies_(listedProxies) {}

    /// To be called for every notification on the bus, in order.
    void notification(const std::string& name);

    struct Step {
        std::string what;
        bool done = false;
    };

    /// All steps, each with whether it is done, judged by the files as they are now.
    std::vector<Step> steps() const;
    bool isGone() const;

  private:
    const TrialRoot& root_;
    std::size_t listedProxies_;
    bool changed_ = false;
    bool bestFound_ = false;
};

} // namespace trial
