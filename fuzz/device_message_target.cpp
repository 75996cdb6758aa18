// SPDX-License-Identifier: MIT
#include <cstdlib>

#include "platform/linux/devices/BlockDevices.h"
#include "platform/linux/devices/Description.h"
#include "targets.h"

namespace kmv::fuzz {

void deviceMessage(std::string_view input) {
  const auto event = parseDeviceMessage(input);
  if (event && (event->action.empty() || event->number.major == 0)) std::abort();
  const SignatureFacts facts = factsOf(parseUdevRecord(input));
  const auto uuid = volumeUUID(facts.type, facts.id);
  if (uuid && UUID::fromString(uuid->string()) != uuid) std::abort();
  if (decodeUdevText(input).size() > input.size() || decodeOctal(input).size() > input.size()) std::abort();
}

}  // namespace kmv::fuzz
