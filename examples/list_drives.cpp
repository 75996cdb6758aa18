// SPDX-License-Identifier: MIT
// Prints the drives that are mounted now, then ends.
#include <KMVDriveLibrary/KMVDriveLibrary.h>

#include <iostream>

int main() {
  if (!kmv::waitForFirstList(std::chrono::seconds(6))) std::cerr << "the list may be incomplete\n";
  for (const auto& [url, drive] : KMVDiskArbiter::sharedInstance().mountedDictionaries()) {
    std::cout << url.path();
    for (const auto& key : {kDiskVolumeName, *kDAVolumeKindKey.value(), *kDAMediaBSDName.value()})
      std::cout << "  " << (drive->text(key) == nullptr ? "(none)" : *drive->text(key));
    std::cout << '\n';
  }
}
