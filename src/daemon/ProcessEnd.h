// The one way out of the process.
#pragma once

namespace havrel {

/// Writes down what was logged, hands over what was posted, and ends the process here and now: the pingers are never
/// stopped, so nothing may be torn down under them. From any thread.
[[noreturn]] void endProcess(int status);

} // namespace havrel
