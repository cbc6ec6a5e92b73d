#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>

namespace corvane {

/// Base of everything that is shared by reference count. The count is not atomic: the tool has one thread,
/// and shared objects must not travel between threads.
class RefCounted {
 public:
  RefCounted() = default;
  RefCounted(const RefCounted&) {}
  RefCounted& operator=(const RefCounted&) { return *this; }

  void retain() const { ++_references; }
  /// Answers true when this was the last reference; the caller then destroys the object.
  bool release() const { return --_references == 0; }
  bool isShared() const { return _references > 1; }

 protected:
  ~RefCounted() = default;

 private:
  mutable std::uint32_t _references = 0;
};

/// Owning pointer to a RefCounted object; may be empty. `T` says how its last reference is dropped with a
/// static function `destroy(T*)`, so that `T` may be incomplete where a Ref is only passed on.
template <typename T>
class Ref {
 public:
  Ref() = default;
  explicit Ref(T* object) : _object(object) {
    if (_object) _object->retain();
  }
  Ref(const Ref& other) : Ref(other._object) {}
  Ref(Ref&& other) noexcept : _object(std::exchange(other._object, nullptr)) {}
  Ref& operator=(Ref other) noexcept {
    std::swap(_object, other._object);
    return *this;
  }
  ~Ref() {
    if (_object && _object->release()) T::destroy(_object);
  }

  T* get() const { return _object; }
  T* operator->() const { return _object; }
  T& operator*() const { return *_object; }
  explicit operator bool() const { return _object != nullptr; }

 private:
  T* _object = nullptr;
};

}  // namespace corvane
