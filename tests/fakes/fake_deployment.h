#pragma once

#include <string>

namespace fakes::deployment {

/// Changes what `platform::deployment::settings` answers from now on.
void setRoot(const std::string& root);
void setTrustAnchorFile(const std::string& file);

} // namespace fakes::deployment
