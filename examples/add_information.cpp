// SPDX-License-Identifier: MIT
// A listener adds a key of its own to every drive before the drive is announced, and the announcement has it:
// add_information. Prints the drives of this machine with the key, and ends.
#include <KMVDriveLibrary/KMVDriveLibrary.h>

#include <chrono>
#include <iostream>
#include <memory>

namespace {

constexpr char kCapacityKey[] = "com.example.capacity";

/// Sorts drives by size.
class CapacityListener : public KMVDiskAdditionalInformationProtocol {
 public:
  /// Runs on the arbiter queue; nobody has heard of the drive yet.
  bool addInformationAboutDiskDictionary(const std::shared_ptr<kmv::DriveDictionary>& drive) override {
    const double gigabytes = drive->snapshot()->doubleValue(kmv::key::kMediaSize) / 1e9;
    const bool known = gigabytes > 0;
    drive->set(kCapacityKey, !known ? "unknown" : gigabytes < 64 ? "small" : "large");
    return true;
  }
};

}  // namespace

int main() {
  KMVDiskArbiter& arbiter = KMVDiskArbiter::sharedInstance();
  arbiter.addAdditionalInformationListener(std::make_shared<CapacityListener>());  // before the first drive
  const auto added = kmv::NotificationCenter::defaultCenter().addObserver(
      kDiskArbiterNewDiskDetectedNotification, [](const kmv::Notification& notification) {
        const kmv::DictionarySnapshot drive = notification.object.dictionary();
        const kmv::URL* url = drive->url(kDiskURLKey);
        const std::string* capacity = drive->text(kCapacityKey);
        std::cout << (url == nullptr ? "?" : url->path()) << "  " << (capacity == nullptr ? "?" : *capacity)
                  << std::endl;
      });
  arbiter.startArbiter();
  kmv::mainQueue().after(std::chrono::seconds(1), [] { kmv::mainQueue().stop(); });
  kmv::mainQueue().run();
}
