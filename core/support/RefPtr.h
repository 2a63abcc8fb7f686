#pragma once

#include <cstddef>
#include <utility>

namespace brimvale {

// An owning pointer to an object that counts its own references (it provides retain() and
// release(); release() deletes the object when the count reaches zero). One word wide, with no
// separate control block: trees of millions of nodes hold one of these per child.
template <class T> class RefPtr {
public:
    RefPtr() noexcept = default;
    RefPtr(std::nullptr_t) noexcept {}
    explicit RefPtr(T* object) noexcept
        : object_(object) {
        if (object_) {
            object_->retain();
        }
    }
    RefPtr(const RefPtr& other) noexcept
        : RefPtr(other.object_) {}
    RefPtr(RefPtr&& other) noexcept
        : object_(std::exchange(other.object_, nullptr)) {}
    template <class U>
    RefPtr(RefPtr<U> other) noexcept
        : object_(other.detach()) {} // NOLINT: implicit upcast
    ~RefPtr() {
        if (object_) {
            object_->release();
        }
    }

    RefPtr& operator=(const RefPtr& other) noexcept {
        RefPtr(other).swap(*this);
        return *this;
    }
    RefPtr& operator=(RefPtr&& other) noexcept {
        RefPtr(std::move(other)).swap(*this);
        return *this;
    }

    // Takes over a reference that the caller already counted (from a fresh object or detach()).
    static RefPtr adopt(T* object) noexcept {
        RefPtr result;
        result.object_ = object;
        return result;
    }
    // Gives up ownership without releasing; the caller now owns one reference.
    T* detach() noexcept { return std::exchange(object_, nullptr); }

    void reset() noexcept { RefPtr().swap(*this); }
    void swap(RefPtr& other) noexcept { std::swap(object_, other.object_); }

    T* get() const noexcept { return object_; }
    T& operator*() const noexcept { return *object_; }
    T* operator->() const noexcept { return object_; }
    explicit operator bool() const noexcept { return object_ != nullptr; }

    friend bool operator==(const RefPtr& a, const RefPtr& b) noexcept {
        return a.object_ == b.object_;
    }
    friend bool operator==(const RefPtr& a, std::nullptr_t) noexcept {
        return a.object_ == nullptr;
    }

private:
    T* object_ = nullptr;
};

} // namespace brimvale
