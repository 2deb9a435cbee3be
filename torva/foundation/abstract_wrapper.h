// Holds an object of a chosen concrete class behind an abstract pointer.
#pragma once

#include <memory>
#include <utility>

namespace torva::sea {

template <class Abstract, class Holder = std::unique_ptr<Abstract>>
class abstract_wrapper {
 public:
  // Makes a value-initialised (zeroed) T, installs it, and only then destroys
  // the object held before; returns the new object with its concrete type.
  template <class T>
  T& construct() {
    T* fresh = new T();
    Holder old(fresh);
    std::swap(holder, old);
    old.reset();
    return *fresh;
  }

  Abstract* get() const noexcept { return holder.get(); }
  Abstract& operator*() const noexcept { return *holder; }
  Abstract* operator->() const noexcept { return holder.get(); }
  explicit operator bool() const noexcept { return static_cast<bool>(holder); }

  Holder holder;
};

}  // namespace torva::sea
