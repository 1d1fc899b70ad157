// Whether the process list shows a program.
#pragma once

#include <string>

namespace havrel {

/// Runs the command with "/bin/sh" and returns whether a line of its standard output contains the text. Blocks until
/// the output is closed; throws platform::Exception if no shell can be started.
bool isListed(const std::string& command, const std::string& text);

} // namespace havrel
