// SPDX-License-Identifier: MIT
// Waits until the Codex volume that holds PATH is built, and prints its size: codex_size PATH.
#include <KMVDriveLibrary/KMVDriveLibrary.h>

#include <filesystem>
#include <iostream>
#include <memory>

namespace {

std::shared_ptr<kmv::DriveDictionary> driveHolding(const kmv::URL& url) {
  try {
    return KMVDiskArbiter::sharedInstance().findRootMountDictionaryForURL(url);
  } catch (const kmv::Exception& error) {
    std::cerr << url.path() << ": " << error.what() << '\n';
    return nullptr;
  }
}

/// Prints the size of the volume once it is known, and ends the program's run of the main queue.
/// Called on the manager's queue, where nothing may wait: the handler is called when the size is there.
void tellSize(const KMVDriveWrapperManager::CodexWrapper& wrapper, int& result) {
  wrapper->setSizeUpdated([&result, weak = std::weak_ptr(wrapper)](std::int64_t bytes) {
    const auto known = weak.lock();
    if (known == nullptr || !known->sizeIsCalculated()) return;  // it is called when it is set, too
    kmv::mainQueue().async([&result, bytes] {
      std::cout << bytes << " bytes\n";
      result = 0;
      kmv::mainQueue().stop();
    });
  });
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: codex_size PATH\n";
    return 2;
  }
  const std::string path = std::filesystem::absolute(argv[1]).lexically_normal().string();
  const kmv::URL url = kmv::URL::fileURLWithPath(path, /*isDirectory=*/false);
  KMVDiskArbiter::sharedInstance().startArbiter();
  const auto drive = driveHolding(url);

  int result = 1;
  const auto supply = [&](const KMVDriveWrapperManager::CodexWrapper& wrapper) {
    if (wrapper != nullptr) return tellSize(wrapper, result);
    kmv::mainQueue().async([&] {
      std::cout << path << " is on no Codex volume\n";
      kmv::mainQueue().stop();
    });
  };
  KMVDriveWrapperManager::sharedInstance().codexVFSWrapper(
      url, drive == nullptr ? kmv::Dictionary() : *drive->snapshot(), /*requireIsReady=*/false, supply);
  kmv::mainQueue().run();  // the checks every 3 seconds come on it
  return result;
}
