// SPDX-License-Identifier: MIT
#include "platform/macos/MacIORegistry.h"

#include <IOKit/IOBSD.h>
#include <IOKit/storage/IOMedia.h>
#include <IOKit/storage/IOStorageDeviceCharacteristics.h>

#include <algorithm>
#include <iterator>
#include <set>
#include <utility>

#include "platform/macos/MacDriveStatistics.h"
#include "platform/macos/RegistryEntries.h"

namespace kmv::macos {
namespace {

std::vector<IOHandle> servicesNamed(const std::string& name) {
  auto found = servicesMatching(MACH_PORT_NULL, IOBSDNameMatching(MACH_PORT_NULL, kNilOptions, name.c_str()));
  return found ? *std::move(found) : std::vector<IOHandle>();
}

std::string textOf(const std::optional<Value>& value) {
  const std::string* const text = value ? value->asText() : nullptr;
  return text == nullptr ? std::string() : *text;
}

bool isWholeMedium(const IOHandle& entry) {
  if (!IOObjectConformsTo(entry.get(), kIOMediaClass)) return false;
  const auto whole = propertyOf(entry, kIOMediaWholeKey);
  return whole && whole->boolValue();
}

StorageDevice describe(const IOHandle& medium) {
  const auto size = propertyOf(medium, kIOMediaSizeKey);
  const auto device = propertyAbove(medium, kIOPropertyDeviceCharacteristicsKey);
  const Dictionary* const facts = device ? device->asDictionary() : nullptr;
  const std::string* const model = facts == nullptr ? nullptr : facts->text(kIOPropertyProductNameKey);
  return {textOf(propertyOf(medium, kIOBSDNameKey)), model == nullptr ? std::string() : *model,
          size ? size->integerValue() : 0};
}

/// The nearest whole media of `from` and what is above them, level by level: all ways up, since an entry can
/// have several parents, and each entry once.
std::vector<IOHandle> nearestWholeMedia(std::vector<IOHandle> from) {
  std::vector<IOHandle> media;
  std::set<std::uint64_t> seen;
  while (!from.empty()) {
    std::vector<IOHandle> above;
    for (IOHandle& entry : from) {
      const auto number = numberOf(entry);
      if (!number || !seen.insert(*number).second) continue;
      if (isWholeMedium(entry)) {
        media.push_back(std::move(entry));
      } else {
        std::ranges::move(parentsOf(entry), std::back_inserter(above));
      }
    }
    from = std::move(above);
  }
  return media;
}

}  // namespace

std::vector<IOService> MacIORegistry::servicesMatchingBSDName(const std::string& name) {
  std::vector<IOService> services;
  for (const IOHandle& entry : servicesNamed(name)) {
    IOService service{textOf(propertyOf(entry, kIOBSDNameKey)), {}};
    for (const IOHandle& child : childrenOf(entry)) service.childNames.push_back(nameOf(child));
    services.push_back(std::move(service));
  }
  return services;
}

std::optional<StorageDevice> MacIORegistry::wholeDisk(const std::string& name) {
  const auto media = nearestWholeMedia(servicesNamed(name));
  return media.empty() ? std::nullopt : std::optional(describe(media.front()));
}

std::vector<StorageDevice> MacIORegistry::physicalDisks(const std::string& name) {
  std::vector<StorageDevice> disks;
  std::set<std::uint64_t> seen;
  auto open = nearestWholeMedia(servicesNamed(name));
  while (!open.empty()) {
    const IOHandle medium = std::move(open.back());
    open.pop_back();
    const auto number = numberOf(medium);
    if (!number || !seen.insert(*number).second) continue;
    auto above = nearestWholeMedia(parentsOf(medium));
    if (above.empty()) disks.push_back(describe(medium));
    std::ranges::move(above, std::back_inserter(open));
  }
  std::ranges::sort(disks, {}, &StorageDevice::name);
  return disks;
}

std::unique_ptr<DriveStatisticsReader> MacIORegistry::makeStatisticsReader() {
  return std::make_unique<MacDriveStatistics>();
}

}  // namespace kmv::macos
