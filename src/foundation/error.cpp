#include "foundation/error.h"

namespace platform {

std::string Error::description() const {
    return "Error Domain=" + domain + " Code=" + std::to_string(code) + " \"" + localizedDescription + "\"";
}

} // namespace platform
