// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/KMVDriveKeys.h>
#include <KMVDriveLibrary/Value.h>

#include <optional>
#include <string>
#include <string_view>

namespace kmv::topology {

/// What the dictionary has under a key that is known once the registry exists; none before, and for no
/// dictionary.
inline std::optional<Value> valueUnder(const KeyVariable& key, const DictionarySnapshot& dictionary) {
  const auto name = key.value();
  const Value* value = dictionary != nullptr && name ? dictionary->find(*name) : nullptr;
  return value == nullptr ? std::nullopt : std::optional(*value);
}

/// The text of a name; none without a name, and for a value of another type, which equals no name.
inline std::optional<std::string_view> textOf(const std::optional<Value>& name) {
  const std::string* text = name ? name->asText() : nullptr;
  return text == nullptr ? std::nullopt : std::optional<std::string_view>(*text);
}

/// True when both are names, and equal.
template <typename Wrapper>
bool bearsName(const Wrapper& wrapper, std::optional<std::string_view> name) {
  const auto own = wrapper.bsdName();
  return name && textOf(own) == name;
}

}  // namespace kmv::topology
