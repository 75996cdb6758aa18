// SPDX-License-Identifier: MIT
// Prints drives as they come, go and are renamed: watch_drives [seconds]. Without a number it runs until it
// is interrupted.
#include <KMVDriveLibrary/KMVDriveLibrary.h>

#include <charconv>
#include <chrono>
#include <cstring>
#include <iostream>

namespace {

kmv::NotificationCenter::Registration printOn(std::string_view name, const char* what) {
  return kmv::NotificationCenter::defaultCenter().addObserver(
      name, [what](const kmv::Notification& notification) {
        // A change arrives on the arbiter queue, the rest on the main queue: hop, so that lines never mix.
        kmv::mainQueue().async([what, drive = notification.object.dictionary()] {
          const kmv::URL* url = drive->url(kDiskURLKey);
          const kmv::URL* oldURL = drive->url(kDiskOldURLKey);
          std::cout << what << "  " << (url == nullptr ? "?" : url->path());
          if (oldURL != nullptr) std::cout << "  (before: " << oldURL->path() << ")";
          std::cout << std::endl;
        });
      });
}

}  // namespace

int main(int argc, char** argv) {
  int seconds = 0;
  if (argc > 1) {
    const char* end = argv[1] + std::strlen(argv[1]);
    const auto parsed = std::from_chars(argv[1], end, seconds);
    if (parsed.ec != std::errc() || parsed.ptr != end || seconds < 1 || argc > 2) {
      std::cerr << "usage: watch_drives [seconds]\n";
      return 2;
    }
  }
  const auto added = printOn(kDiskArbiterNewDiskDetectedNotification, "added  ");
  const auto removed = printOn(kDiskArbiterRemovedDiskDetectedNotification, "removed");
  const auto changed = printOn(kDiskArbiterChangedDiskDetectedNotification, "changed");

  KMVDiskArbiter::sharedInstance().startArbiter();
  if (seconds > 0) kmv::mainQueue().after(std::chrono::seconds(seconds), [] { kmv::mainQueue().stop(); });
  kmv::mainQueue().run();
}
