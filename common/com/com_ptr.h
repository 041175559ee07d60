// A counted reference to a COM object.
#pragma once

#include <unknwn.h>

#include <utility>

namespace vorna {

template <typename Interface>
class com_ptr {
  public:
    com_ptr() = default;
    com_ptr(std::nullptr_t) {}
    // Adds a reference.
    explicit com_ptr(Interface* pointer) : pointer_(pointer) { add_ref(); }
    com_ptr(const com_ptr& other) : pointer_(other.pointer_) { add_ref(); }
    com_ptr(com_ptr&& other) noexcept : pointer_(std::exchange(other.pointer_, nullptr)) {}
    com_ptr& operator=(com_ptr other) noexcept {
        std::swap(pointer_, other.pointer_);
        return *this;
    }
    ~com_ptr() { reset(); }

    Interface* get() const { return pointer_; }
    Interface* operator->() const { return pointer_; }
    explicit operator bool() const { return pointer_ != nullptr; }

    void reset() {
        if (Interface* old = std::exchange(pointer_, nullptr))
            old->Release();
    }
    // Takes ownership of a reference without adding one.
    void attach(Interface* pointer) {
        reset();
        pointer_ = pointer;
    }
    // Gives up ownership without releasing the reference.
    Interface* detach() { return std::exchange(pointer_, nullptr); }

    // For functions that return a pointer through an argument; releases the current reference first.
    Interface** put() {
        reset();
        return &pointer_;
    }
    void** put_void() { return reinterpret_cast<void**>(put()); }

    // Another interface of the same object; null if the object does not have it.
    template <typename Other>
    com_ptr<Other> try_as(REFIID iid = __uuidof(Other)) const {
        com_ptr<Other> other;
        if (pointer_)
            pointer_->QueryInterface(iid, other.put_void());
        return other;
    }

  private:
    void add_ref() {
        if (pointer_)
            pointer_->AddRef();
    }

    Interface* pointer_ = nullptr;
};

} // namespace vorna
