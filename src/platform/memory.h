// The process's memory, as its host sees it. Thread-safe unless said otherwise.
#pragma once

namespace platform::memory {

/// Lets all threads share one heap instead of giving each its own: they seldom run at once, and what one has freed the
/// others can use. Before there are other threads.
void shareHeap();

/// Hands what is free back to the system. It takes a millisecond or so: for the end of work that needed much.
void giveBack();

} // namespace platform::memory
