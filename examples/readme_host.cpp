// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/KMVDriveLibrary.h>

#include <iostream>

int main() {
  auto& center = kmv::NotificationCenter::defaultCenter();
  auto say = [](const char* what) {
    return [what](const kmv::Notification& notification) {
      const kmv::DictionarySnapshot drive = notification.object.dictionary();
      const kmv::URL* url = drive->url(kDiskURLKey);
      const std::string* name = drive->text(kDiskVolumeName);
      std::cout << what << " " << (name ? *name : "?") << " at " << (url ? url->path() : "?") << std::endl;
    };
  };
  const auto added = center.addObserver(kDiskArbiterNewDiskDetectedNotification, say("+"));
  const auto removed = center.addObserver(kDiskArbiterRemovedDiskDetectedNotification, say("-"));

  KMVDiskArbiter::sharedInstance().startArbiter();
  kmv::mainQueue().run();  // the drives that are there come first, then what changes
}
