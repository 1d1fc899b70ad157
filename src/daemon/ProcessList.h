// Whether a program runs, by what the process list says.
#pragma once

#include <string>

namespace havrel {

/// Runs the listing command through "/bin/sh" and tells whether one line of its output contains the text. Raises
/// platform::Exception when no shell can be started.
bool isListed(const std::string& command, const std::string& text);

} // namespace havrel
