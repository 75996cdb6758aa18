// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/StorageDevices.h>

#include "platform/Platform.h"

namespace kmv {

std::optional<StorageDevice> wholeDiskOf(std::string_view bsdName) {
  return Platform::current().ioRegistry().wholeDisk(std::string(bsdName));
}

std::vector<StorageDevice> physicalDisksBelow(std::string_view bsdName) {
  return Platform::current().ioRegistry().physicalDisks(std::string(bsdName));
}

}  // namespace kmv
