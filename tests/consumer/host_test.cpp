// SPDX-License-Identifier: MIT
// A host's own test: a stick is plugged into a machine in memory, and the host hears of it.
#include <KMVDriveLibrary/KMVDriveLibrary.h>
#include <KMVDriveLibrary/testing/SimulatedPlatform.h>

#include <iostream>

int main() {
  auto& machine = kmv::simulation::SimulatedPlatform::install(/*seed=*/7);
  int announced = 0;
  const auto registration = kmv::NotificationCenter::defaultCenter().addObserver(
      kDiskArbiterNewDiskDetectedNotification, [&](const kmv::Notification&) { ++announced; });
  KMVDiskArbiter::sharedInstance().startArbiter();
  machine.plugIn({.name = "STICK", .mountPoint = "/Volumes/STICK"});
  machine.runUntilIdle();
  if (announced == 1 && KMVDiskArbiter::sharedInstance().mountedDictionaries().size() == 1) return 0;
  std::cerr << "announced " << announced << " drives\n";
  return 1;
}
