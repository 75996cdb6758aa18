// SPDX-License-Identifier: MIT
#include "kmvdrive/RefusalText.h"

#include <KMVDriveLibrary/DissentStatus.h>

#include <cinttypes>
#include <cstdint>
#include <cstdio>

namespace kmv::tool {
namespace {

const char* reasonOf(std::int64_t status) {
  switch (status) {
    case dissent::kBusy:
      return "something on it is in use";
    case dissent::kBadArgument:
      return "it cannot have that name";
    case dissent::kExclusiveAccess:
      return "another program has the device for itself";
    case dissent::kNoResources:
      return "the system has no resources left for it";
    case dissent::kNotFound:
      return "its device is gone";
    case dissent::kNotMounted:
      return "it is not mounted any more";
    case dissent::kNotPermitted:
      return "the system does not permit it";
    case dissent::kNotPrivileged:
      return "this takes more rights than you have";
    case dissent::kNotReady:
      return "the device is not ready";
    case dissent::kNotWritable:
      return "it is read-only";
    case dissent::kUnsupported:
      return "a volume of this kind cannot do that";
    default:
      return "the system refused without a reason that is known here";
  }
}

}  // namespace

std::string refusalText(const Dictionary& rejection) {
  const auto numberUnder = [&](const char* key) {
    const Value* number = rejection.find(key);
    return number == nullptr ? 0 : number->integerValue();
  };
  const std::int64_t status = numberUnder("status"), processID = numberUnder("pid");
  char number[48];
  // The platform's statuses are known by their hexadecimal form.
  const bool isPlatforms = status < 0 && status >= INT32_MIN;
  if (isPlatforms) {
    std::snprintf(number, sizeof number, "0x%08" PRIX32, static_cast<std::uint32_t>(status));
  } else {
    std::snprintf(number, sizeof number, "%" PRId64, status);
  }
  std::string text = std::string(reasonOf(status)) + " (status " + number;
  if (processID != 0) text += ", process " + std::to_string(processID);
  return text + ")";
}

}  // namespace kmv::tool
