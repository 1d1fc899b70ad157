// JSON from the web service: it is read or refused with a reason, and what was read can be written and read again.
#include "foundation/json.h"
#include "fuzz/require.h"

#include <cstdint>

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
    require(value.has_value() != error.has_value());
    if (!value) {
        return 0;
    }
    // From the second time on the text stays the same; the first time -0 becomes 0.
    const auto written = rewritten(*value);
    require(written.has_value());
    require(rewritten(*parse(*written, error)) == written);
    return 0;
}
