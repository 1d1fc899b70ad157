#pragma once

#include <string>

namespace fakes::deployment {

/// What `platform::deployment::root` answers from now on.
void setRoot(const std::string& root);
/// The same for `platform::deployment::trustAnchorFile`.
void setTrustAnchorFile(const std::string& file);

} // namespace fakes::deployment
