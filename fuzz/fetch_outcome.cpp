// What HavrelFetch says, which may have been taken over: what is understood is what it would say by itself.
#include "fetch/message.h"
#include "fuzz/require.h"

#include <cstddef>
#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string message(reinterpret_cast<const char*>(data), size);
    if (const auto outcome = platform::fetch::decodeOutcome(message)) {
        require(platform::fetch::encode(*outcome) == message);
    }
    return 0;
}
