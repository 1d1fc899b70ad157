// A machine that has no thread left.
#pragma once

#include <pthread.h>

namespace support {

/// While it lives, no new thread can be made: its stack would be larger than the address space.
class ThreadShortage {
  public:
    ThreadShortage() {
        pthread_getattr_default_np(&before_);
        pthread_attr_t huge;
        pthread_attr_init(&huge);
        pthread_attr_setstacksize(&huge, std::size_t{1} << 48);
        pthread_setattr_default_np(&huge);
        pthread_attr_destroy(&huge);
    }

    ~ThreadShortage() {
        pthread_setattr_default_np(&before_);
        pthread_attr_destroy(&before_);
    }

    ThreadShortage(const ThreadShortage&) = delete;
    ThreadShortage& operator=(const ThreadShortage&) = delete;

  private:
    pthread_attr_t before_{};
};

} // namespace support
