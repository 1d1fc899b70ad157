#include "foundation/json.h"

#include <cstdint>
#include <cstdlib>

namespace {

std::optional<std::string> rewritten(const platform::Value& value) {
    std::optional<platform::Error> error;
    const auto text = platform::json::prettyPrinted(value);
    const auto again = text ? platform::json::parse(*text, error) : std::nullopt;
    return again ? platform::json::prettyPrinted(*again) : std::nullopt;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace platform::json;
    std::optional<platform::Error> error;
    const auto value = parse({reinterpret_cast<const char*>(data), size}, error);
    if (value.has_value() == error.has_value()) {
        std::abort();
    }
    if (!value) {
        return 0;
    }
    // What was written once is written the same again, once -0 has become 0.
    const auto written = rewritten(*value);
    if (!written || rewritten(*parse(*written, error)) != written) {
        std::abort();
    }
    return 0;
}
