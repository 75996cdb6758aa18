// SPDX-License-Identifier: MIT
#include "platform/linux/devices/SysfsFacts.h"

#include <KMVDriveLibrary/DescriptionKeys.h>

#include <optional>

#include "base/Text.h"
#include "platform/posix/SystemFiles.h"

namespace kmv {
namespace {

using Of = SysfsFact::Of;
using Kind = SysfsFact::Kind;

constexpr SysfsFact kFacts[] = {
    {key::kMediaRemovable, Of::wholeDisk, "removable", Kind::flag},
};

std::optional<Value> valueOf(const std::string& text, Kind kind) {
  switch (kind) {
    case Kind::text:
      return text.empty() ? std::nullopt : std::optional<Value>(text);
    case Kind::integer: {
      const auto number = parseNumber(text);
      return number ? std::optional<Value>(*number) : std::nullopt;
    }
    case Kind::boolean:
      return text == "0" || text == "1" ? std::optional<Value>(text == "1") : std::nullopt;
    case Kind::flag:
      return text == "1";
  }
  return std::nullopt;
}

}  // namespace

std::span<const SysfsFact> sysfsFacts() {
  return kFacts;
}

Dictionary readSysfsFacts(std::span<const SysfsFact> facts, const std::string& device,
                          const std::string& wholeDisk) {
  Dictionary read;
  for (const SysfsFact& fact : facts) {
    const std::string& folder = fact.of == Of::device ? device : wholeDisk;
    const auto value = valueOf(readAttribute(folder + "/" + std::string(fact.attribute)), fact.kind);
    if (value) read.set(fact.key, *value);
  }
  return read;
}

}  // namespace kmv
