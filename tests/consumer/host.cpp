// SPDX-License-Identifier: MIT
// A host on the real machine: starts the registry and waits until every volume that was mounted before is
// registered.
#include <KMVDriveLibrary/KMVDriveLibrary.h>

#include <chrono>
#include <iostream>

int main() {
  using namespace std::chrono_literals;
  auto& arbiter = KMVDiskArbiter::sharedInstance();
  arbiter.startArbiter();
  const auto deadline = std::chrono::steady_clock::now() + 20s;
  while (arbiter.disksAlreadyMountedAtInit()->count() != 0) {
    if (std::chrono::steady_clock::now() > deadline) {
      std::cerr << "mounted volumes were never registered\n";
      return 1;
    }
    kmv::mainQueue().after(10ms, [] { kmv::mainQueue().stop(); });
    kmv::mainQueue().run();
  }
  for (const auto& [url, drive] : arbiter.mountedDictionaries()) std::cout << url.absoluteString() << '\n';
  return KMVDriveLibraryVersionNumber == 1.0 ? 0 : 1;
}
