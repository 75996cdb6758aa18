// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/AtomicProperty.h>
#include <KMVDriveLibrary/Export.h>

#include <string_view>
#include <utility>

namespace kmv {

/// Stops the process: the property was set to null.
[[noreturn]] KMV_EXPORT void stopForNull(std::string_view property);

/// An `AtomicProperty` for a pointer that its owner dereferences unasked: setting null is a programming error.
/// Failure: null stops the process with a message that names the property, in the setter and not later on a
/// thread of the library.
template <typename T>
class RequiredProperty {
 public:
  /// `name` must outlive the property.
  explicit RequiredProperty(std::string_view name, T value = {}) : name_(name), value_(std::move(value)) {}

  T get() const { return value_.get(); }
  void set(T value) {
    if (value == nullptr) stopForNull(name_);
    value_.set(std::move(value));
  }

 private:
  std::string_view name_;
  AtomicProperty<T> value_;
};

}  // namespace kmv
