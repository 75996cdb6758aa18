// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/Attributes.h>

#include <algorithm>
#include <utility>

#include "platform/Platform.h"

namespace kmv {
namespace {

/// Why the item cannot be read or written.
AttributeError errorAt(const std::string& path) {
  const bool isThere = Platform::current().files().itemKind(path) != ItemKind::none;
  return isThere ? AttributeError::refused : AttributeError::noItem;
}

}  // namespace

AttributeNames attributeNames(const std::string& path) {
  auto names = Platform::current().extendedAttributes().names(path);
  if (!names) return {errorAt(path), {}};
  std::sort(names->begin(), names->end());
  return {AttributeError::none, std::move(*names)};
}

AttributeValue attributeValue(const std::string& path, const std::string& name) {
  auto value = Platform::current().extendedAttributes().get(path, name);
  if (value) return {AttributeError::none, std::move(*value)};
  const AttributeNames others = attributeNames(path);
  if (others.error != AttributeError::none) return {others.error, {}};
  const bool isUnreadable = std::binary_search(others.names.begin(), others.names.end(), name);
  return {isUnreadable ? AttributeError::refused : AttributeError::noAttribute, {}};
}

AttributeError setAttributeValue(const std::string& path, const std::string& name, const std::string& bytes) {
  const bool isSet = Platform::current().extendedAttributes().set(path, name, bytes);
  return isSet ? AttributeError::none : errorAt(path);
}

}  // namespace kmv
