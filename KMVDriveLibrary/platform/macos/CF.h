// SPDX-License-Identifier: MIT
#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <IOKit/IOKitLib.h>

#include <utility>

// Ownership of what the platform hands out, by scope (RAII).

extern "C" {
// The compiler's documented run-time pair of an autorelease pool; libobjc has it.
void* objc_autoreleasePoolPush(void);
void objc_autoreleasePoolPop(void* pool);
}

namespace kmv::macos {

/// One strong reference to an object of CoreFoundation or of a framework built on it; may be null.
template <typename Reference>
class CF {
 public:
  CF() = default;
  /// Takes over the caller's reference: of functions with Create or Copy in their name.
  static CF adopt(Reference reference) {
    CF owner;
    owner.reference_ = reference;
    return owner;
  }
  /// Retains: what functions with Get in their name return, and the arguments of callbacks, are borrowed.
  static CF share(Reference reference) {
    if (reference != nullptr) CFRetain(reference);
    return adopt(reference);
  }
  CF(const CF& other) : CF(share(other.reference_)) {}
  CF(CF&& other) noexcept : reference_(std::exchange(other.reference_, nullptr)) {}
  CF& operator=(CF other) noexcept {
    std::swap(reference_, other.reference_);
    return *this;
  }
  ~CF() {
    if (reference_ != nullptr) CFRelease(reference_);  // which crashes on null
  }

  Reference get() const { return reference_; }
  /// Gives the reference to the caller.
  Reference release() { return std::exchange(reference_, nullptr); }
  explicit operator bool() const { return reference_ != nullptr; }

 private:
  Reference reference_ = nullptr;
};

/// One handle of IOKit: an entry of the registry, or an iterator.
class IOHandle {
 public:
  IOHandle() = default;
  /// Takes over the caller's handle.
  explicit IOHandle(io_object_t object) : object_(object) {}
  IOHandle(IOHandle&& other) noexcept : object_(std::exchange(other.object_, IO_OBJECT_NULL)) {}
  IOHandle& operator=(IOHandle&& other) noexcept {
    std::swap(object_, other.object_);
    return *this;
  }
  ~IOHandle() {
    if (object_ != IO_OBJECT_NULL) IOObjectRelease(object_);
  }

  io_object_t get() const { return object_; }
  explicit operator bool() const { return object_ != IO_OBJECT_NULL; }

 private:
  io_object_t object_ = IO_OBJECT_NULL;
};

/// What the platform autoreleases in this scope is released at its end: a plain thread of a host has no pool.
class AutoreleaseScope {
 public:
  AutoreleaseScope() : pool_(objc_autoreleasePoolPush()) {}
  ~AutoreleaseScope() { objc_autoreleasePoolPop(pool_); }
  AutoreleaseScope(const AutoreleaseScope&) = delete;
  AutoreleaseScope& operator=(const AutoreleaseScope&) = delete;

 private:
  void* pool_;
};

}  // namespace kmv::macos
