// SPDX-License-Identifier: MIT
// A host's test in small: a machine in memory, a stick that is plugged in, renamed and pulled out, and what a
// host hears of it.
#include <KMVDriveLibrary/KMVDriveLibrary.h>
#include <KMVDriveLibrary/testing/SimulatedPlatform.h>

#include <iostream>
#include <string>

int main() {
  auto& machine = kmv::simulation::SimulatedPlatform::install();  // before anything else of the library

  const auto heard = kmv::NotificationCenter::defaultCenter().addObserver(
      std::nullopt, [&](const kmv::Notification& notification) {
        const kmv::URL* url = notification.object.dictionary()->url(kDiskURLKey);
        const std::string queue = machine.currentQueueLabel();
        std::cout << notification.name << "  " << (url == nullptr ? "?" : url->path()) << "  on "
                  << queue.substr(queue.rfind('.') + 1) << '\n';
      });
  KMVDiskArbiter::sharedInstance().startArbiter();

  const auto stick = machine.plugIn({.name = "STICK", .mountPoint = "/Volumes/STICK", .ejectable = true});
  machine.runUntilIdle();  // nothing happens by itself: the test decides when queues run and time passes
  machine.rename(stick, "HOLIDAY");
  machine.runUntilIdle();
  machine.unplug(stick);
  machine.runUntilIdle();
  std::cout << KMVDiskArbiter::sharedInstance().mountedDictionaries().size() << " drives left\n";
}
