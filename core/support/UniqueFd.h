#pragma once

#include <unistd.h>
#include <utility>

namespace brimvale {

// Owns a file descriptor and closes it once. Thread safety: like an int.
class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int descriptor)
        : descriptor_(descriptor) {}
    UniqueFd(UniqueFd&& other) noexcept
        : descriptor_(other.release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        reset(other.release());
        return *this;
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;
    ~UniqueFd() { reset(); }

    int get() const { return descriptor_; }
    bool valid() const { return descriptor_ >= 0; }
    int release() { return std::exchange(descriptor_, -1); }
    void reset(int descriptor = -1) {
        if (descriptor_ >= 0) {
            ::close(descriptor_);
        }
        descriptor_ = descriptor;
    }

private:
    int descriptor_ = -1;
};

} // namespace brimvale
