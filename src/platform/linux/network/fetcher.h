// Web transfers by HavrelFetch, a program of its own: what it reads comes from the network, and this process is root.
// Thread-safe.
#pragma once

#include "fetch/message.h"

#include <string>

namespace platform::fetcher {

/// HavrelFetch, which lies beside this program.
std::string program();

/// Starts the program, hands it the request and waits for the outcome, hardly longer than the request's time-out. Root
/// has it run as the user "havrel-fetch" or, where there is none, as nobody. Whatever the program does, it is gone
/// afterwards, and it has taken no more memory here than the longest answer needs; what isn't an outcome is an error.
/// Throws platform::Exception when it can't be started.
fetch::Outcome perform(const std::string& program, const fetch::Request& request);

/// Ends the transfers under way, and all later ones, with an error.
void endAll();

} // namespace platform::fetcher
