// Owns a file descriptor.
#pragma once

#include <cerrno>
#include <unistd.h>
#include <utility>

namespace platform {

/// Closes its descriptor at the end of its life; moves, does not copy.
class Descriptor {
  public:
    Descriptor() = default;

    /// Takes ownership of what a system call returned; below 0 is none.
    explicit Descriptor(int descriptor) : descriptor_(descriptor) {}

    ~Descriptor() { reset(); }

    Descriptor(Descriptor&& other) noexcept : descriptor_(other.release()) {}

    Descriptor& operator=(Descriptor&& other) noexcept {
        reset(other.release());
        return *this;
    }

    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    /// Borrowed; below 0 when there is none.
    int get() const { return descriptor_; }

    explicit operator bool() const { return descriptor_ >= 0; }

    /// Hands the descriptor over to the caller.
    int release() { return std::exchange(descriptor_, -1); }

    /// Closes what is held and takes another one. `errno` is as before.
    void reset(int descriptor = -1);

  private:
    int descriptor_ = -1;
};

inline void Descriptor::reset(int descriptor) {
    const int old = std::exchange(descriptor_, descriptor);
    if (old >= 0) {
        const int error = errno;
        ::close(old);
        errno = error;
    }
}

} // namespace platform
