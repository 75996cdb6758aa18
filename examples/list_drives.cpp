// SPDX-License-Identifier: MIT
// Prints the drives that are mounted now, then ends.
#include <KMVDriveLibrary/KMVDriveLibrary.h>

#include <chrono>
#include <iostream>
#include <string>

namespace {

using namespace std::chrono_literals;

constexpr auto kPatience = 3s;

std::string textOr(const kmv::Dictionary& drive, std::string_view key, const char* otherwise) {
  const std::string* text = drive.text(key);
  return text == nullptr ? otherwise : *text;
}

void printDrives() {
  for (const auto& [url, drive] : KMVDiskArbiter::sharedInstance().mountedDictionaries()) {
    const bool removable = drive->boolValue(kDiskRemoveableKey).value_or(false);
    std::cout << url.path() << "  " << textOr(*drive, kDiskVolumeName, "(no name)") << "  "
              << textOr(*drive, *kDAVolumeKindKey.value(), "(no kind)") << "  "
              << textOr(*drive, *kDAMediaBSDName.value(), "(no device)") << (removable ? "  removable" : "")
              << '\n';
  }
}

/// Every volume that was mounted at the start leaves the list of those when the registry has it. One that
/// never comes, since it was unmounted meanwhile or cannot be described, must not keep us.
void stopWhenComplete(std::chrono::steady_clock::time_point deadline) {
  const bool complete = KMVDiskArbiter::sharedInstance().disksAlreadyMountedAtInit()->count() == 0;
  if (complete || std::chrono::steady_clock::now() >= deadline) {
    kmv::mainQueue().stop();
    return;
  }
  kmv::mainQueue().after(10ms, [deadline] { stopWhenComplete(deadline); });
}

}  // namespace

int main() {
  KMVDiskArbiter::sharedInstance().startArbiter();
  stopWhenComplete(std::chrono::steady_clock::now() + kPatience);
  kmv::mainQueue().run();
  printDrives();
}
