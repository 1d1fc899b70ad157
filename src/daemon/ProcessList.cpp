#include "daemon/ProcessList.h"

#include "foundation/text.h"
#include "foundation/unicode.h"
#include "platform/processes.h"

#include <algorithm>

namespace havrel {

bool isListed(const std::string& command, const std::string& text) {
    using namespace platform;
    const auto output = processes::runTask("/bin/sh", {"-c", command}, processes::Capture::standardOutput);
    const auto lines = text::split(text::decodeUtf8(output.standardOutput).value_or(""), "\n");
    return std::any_of(lines.begin(), lines.end(),
                       [&](const std::string& line) { return line.find(text) != std::string::npos; });
}

} // namespace havrel
