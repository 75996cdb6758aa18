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
    {key::kMediaRemovable, "removable", Of::wholeDisk, Kind::flag},
    {key::kMediaWritable, "ro", Of::device, Kind::denial},
    {key::kMediaBlockSize, "queue/logical_block_size", Of::wholeDisk, Kind::integer},
};

constexpr SysfsFact kLastingFacts[] = {
    {key::kDeviceRotational, "queue/rotational", Of::wholeDisk, Kind::boolean},
    {key::kDeviceVendor, "device/vendor", Of::wholeDisk, Kind::text},
    {key::kDeviceRevision, "device/rev", Of::wholeDisk, Kind::text},
    {key::kDeviceRevision, "device/firmware_rev", Of::wholeDisk, Kind::text},
    {key::kDeviceSerial, "serial", Of::wholeDisk, Kind::text},
    {key::kDeviceSerial, "device/serial", Of::wholeDisk, Kind::text},
};

std::optional<Value> valueOf(const std::string& text, Kind kind) {
  switch (kind) {
    case Kind::text:
      return text.empty() || text.starts_with("0x") ? std::nullopt : std::optional<Value>(text);
    case Kind::integer: {
      const auto number = parseNumber(text);
      return number ? std::optional<Value>(*number) : std::nullopt;
    }
    case Kind::boolean:
      return text == "0" || text == "1" ? std::optional<Value>(text == "1") : std::nullopt;
    case Kind::denial:
      return text == "0" || text == "1" ? std::optional<Value>(text == "0") : std::nullopt;
    case Kind::flag:
      return text == "1";
  }
  return std::nullopt;
}

}  // namespace

std::span<const SysfsFact> sysfsFacts() {
  return kFacts;
}

std::span<const SysfsFact> lastingSysfsFacts() {
  return kLastingFacts;
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
