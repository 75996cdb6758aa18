// SPDX-License-Identifier: MIT
#include "platform/macos/RegistryEntries.h"

namespace kmv::macos {
namespace {

/// Also of an iterator that is 0, which stands for nothing found.
std::vector<IOHandle> entriesOf(const IOHandle& iterator) {
  std::vector<IOHandle> entries;
  if (!iterator) return entries;
  while (auto entry = IOHandle(IOIteratorNext(iterator.get()))) entries.push_back(std::move(entry));
  return entries;
}

std::optional<Value> ownedValue(CFTypeRef object) {
  return valueOf(CF<CFTypeRef>::adopt(object).get());
}

}  // namespace

std::optional<std::vector<IOHandle>> servicesMatching(mach_port_t port, CFDictionaryRef matching) {
  if (matching == nullptr) return std::nullopt;
  io_iterator_t found = IO_OBJECT_NULL;
  const kern_return_t result = IOServiceGetMatchingServices(port, matching, &found);
  const IOHandle iterator(found);
  return result == KERN_SUCCESS ? std::optional(entriesOf(iterator)) : std::nullopt;
}

std::vector<IOHandle> childrenOf(const IOHandle& entry) {
  io_iterator_t children = IO_OBJECT_NULL;
  if (IORegistryEntryGetChildIterator(entry.get(), kIOServicePlane, &children) != KERN_SUCCESS) return {};
  return entriesOf(IOHandle(children));
}

std::vector<IOHandle> parentsOf(const IOHandle& entry) {
  io_iterator_t parents = IO_OBJECT_NULL;
  if (IORegistryEntryGetParentIterator(entry.get(), kIOServicePlane, &parents) != KERN_SUCCESS) return {};
  return entriesOf(IOHandle(parents));
}

std::optional<std::uint64_t> numberOf(const IOHandle& entry) {
  std::uint64_t number = 0;
  if (IORegistryEntryGetRegistryEntryID(entry.get(), &number) != KERN_SUCCESS) return std::nullopt;
  return number;
}

std::string nameOf(const IOHandle& entry) {
  io_name_t name{};
  return IORegistryEntryGetName(entry.get(), name) == KERN_SUCCESS ? name : std::string();
}

std::string pathOf(const IOHandle& entry) {
  return textOf(CF<CFStringRef>::adopt(IORegistryEntryCopyPath(entry.get(), kIOServicePlane)).get());
}

std::optional<Value> propertyOf(const IOHandle& entry, const char* key) {
  return ownedValue(IORegistryEntryCreateCFProperty(entry.get(), createString(key).get(), kCFAllocatorDefault,
                                                    kNilOptions));
}

std::optional<Value> propertyAbove(const IOHandle& entry, const char* key) {
  return ownedValue(IORegistryEntrySearchCFProperty(
      entry.get(), kIOServicePlane, createString(key).get(), kCFAllocatorDefault,
      kIORegistryIterateRecursively | kIORegistryIterateParents));
}

}  // namespace kmv::macos
