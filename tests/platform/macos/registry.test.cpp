// SPDX-License-Identifier: MIT
// The platform's registry of devices: services, whole and physical disks, counted drivers.
#include <sys/mount.h>

#include "platform/macos/MacIORegistry.h"
#include "platform/macos/MacTest.h"
#include "platform/macos/RegistryEntries.h"
#include "support/Testing.h"

namespace kmv::macos {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// The entries of one machine; each verb returns the entry's number.
class MacRegistry : public MacTest {
 protected:
  static int driver(const std::string& device, const std::string& product = {},
                    const fake::Entries& counts = {}) {
    const int entry = fake::publish({device, {"IOBlockStorageDevice"}});
    if (!product.empty()) {
      fake::setProperty(entry, "Device Characteristics",
                        std::make_shared<fake::Map>(fake::Map{{{"Product Name", product}}}));
    }
    const int made =
        fake::publish({"IOBlockStorageDriver", {"IOBlockStorageDriver", "IOStorage"}, {}, {entry}});
    if (!counts.empty())
      fake::setProperty(made, "Statistics", std::make_shared<fake::Map>(fake::Map{counts}));
    return made;
  }
  static int medium(const std::string& bsdName, bool isWhole, std::vector<int> parents,
                    std::int64_t size = 0) {
    return fake::publish({bsdName + " Media",
                          {"AppleMedia", "IOMedia", "IOStorage"},
                          {{"BSD Name", bsdName}, {"Whole", isWhole}, {"Size", size}},
                          std::move(parents)});
  }
  static int between(const std::string& name, int parent) {
    return fake::publish({name, {"IOStorage"}, {}, {parent}});
  }
  /// A disk with an APFS container: disk0, its partition disk0s2, the container disk3 with the volume disk3s1.
  int machine() {
    const int disk = medium("disk0", true, {driver("SSD", "FAST 512 ")}, 512);
    const int store = between("AppleAPFSContainerScheme",
                              medium("disk0s2", false, {between("IOGUIDPartitionScheme", disk)}));
    container_ = between("AppleAPFSContainer", medium("disk3", true, {store}, 500));
    medium("disk3s1", false, {container_});
    return disk;
  }
  std::vector<std::string> physicalDisks(const std::string& name) {
    std::vector<std::string> names;
    for (const StorageDevice& disk : registry_.physicalDisks(name)) names.push_back(disk.name);
    return names;
  }
  std::vector<std::string> childrenOf(const std::string& name) {
    const auto services = registry_.servicesMatchingBSDName(name);
    return services.size() == 1 && services.front().bsdName == name
               ? services.front().childNames
               : std::vector<std::string>{"no such service"};
  }

  MacIORegistry registry_;
  int container_ = 0;
};

TEST_F(MacRegistry, OnlyAContainersOwnMediumHasTheContainerAsChild) {
  machine();
  EXPECT_THAT(childrenOf("disk3"), ElementsAre("AppleAPFSContainer"));
  EXPECT_THAT(childrenOf("disk0s2"), ElementsAre("AppleAPFSContainerScheme"));
  EXPECT_THAT(childrenOf("disk3s1"), IsEmpty());
  EXPECT_THAT(registry_.servicesMatchingBSDName("disk9"), IsEmpty());
  fake::failNextSearch();
  EXPECT_THAT(registry_.servicesMatchingBSDName("disk3"), IsEmpty());
  fake::findNothingNext();
  EXPECT_THAT(registry_.servicesMatchingBSDName("disk3"), IsEmpty());
}

TEST_F(MacRegistry, AVolumeStandsOnItsContainerAndThatOnTheDisksOfItsPartitions) {
  machine();
  EXPECT_EQ(registry_.wholeDisk("disk3s1"), (StorageDevice{"disk3", "FAST 512 ", 500}));
  EXPECT_EQ(registry_.wholeDisk("disk0s2")->name, "disk0");
  EXPECT_EQ(registry_.wholeDisk("disk0")->name, "disk0");
  EXPECT_EQ(registry_.wholeDisk("disk9"), std::nullopt);
  EXPECT_EQ(registry_.physicalDisks("disk3s1"), (std::vector<StorageDevice>{{"disk0", "FAST 512 ", 512}}));
  for (const char* name : {"disk3", "disk0s2", "disk0"})
    EXPECT_THAT(physicalDisks(name), ElementsAre("disk0")) << name;
  medium("disk8", true, {driver("IOHDIXHDDriveOutKernel")});
  EXPECT_EQ(registry_.physicalDisks("disk8"), (std::vector<StorageDevice>{{"disk8", "", 0}})) << "an image";
  EXPECT_THAT(physicalDisks("disk9"), IsEmpty());
}

TEST_F(MacRegistry, ASetOnSeveralDisksHasAllOfThemAndEachOnce) {
  const int first = medium("disk5", true, {driver("A")}), second = medium("disk4", true, {driver("B")});
  const int set = fake::publish({"AppleRAIDSet", {"IOStorage"}, {}, {first, second, first}});
  medium("disk6s1", false, {between("scheme", medium("disk6", true, {set}))});
  EXPECT_THAT(physicalDisks("disk6s1"), ElementsAre("disk4", "disk5"));
  EXPECT_EQ(registry_.wholeDisk("disk6s1")->name, "disk6");
}

TEST_F(MacRegistry, AnEntryThatIsWithdrawnWhileAHandleStandsForItHasNothing) {
  const int disk = machine();
  const auto found =
      servicesMatching(MACH_PORT_NULL, IOBSDNameMatching(MACH_PORT_NULL, kNilOptions, "disk0"));
  ASSERT_EQ(found->size(), 1u);
  fake::withdraw(disk);
  const IOHandle& entry = found->front();
  EXPECT_THAT(parentsOf(entry), IsEmpty());
  EXPECT_THAT(kmv::macos::childrenOf(entry), IsEmpty());
  EXPECT_EQ(numberOf(entry), std::nullopt);
  EXPECT_EQ(nameOf(entry), "");
  EXPECT_EQ(pathOf(entry), "");
  EXPECT_EQ(propertyOf(entry, "Size"), std::nullopt);
  EXPECT_EQ(propertyAbove(entry, "Device Characteristics"), std::nullopt);
}

class MacStatistics : public MacRegistry {
 protected:
  void TearDown() override {
    reader_.reset();
    MacRegistry::TearDown();
  }
  const DriveStatistics& read() {
    reader_->read(MACH_PORT_NULL, statistics_);
    return statistics_;
  }
  std::vector<std::string> volumes() {
    std::vector<std::string> lines;
    for (const auto& volume : read().volumes) lines.push_back(volume.url.path() + " on " + volume.mediaPath);
    return lines;
  }

  std::unique_ptr<DriveStatisticsReader> reader_ = registry_.makeStatisticsReader();
  DriveStatistics statistics_;
};

TEST_F(MacStatistics, EveryDriverIsReadWithItsPathAndWhatItCounts) {
  const int counting =
      driver("SSD", {},
             {{"Bytes (Read)", std::int64_t{-1}},  // 2^64 - 1: the platform's number has a sign
              {"Bytes (Write)", std::int64_t{2}},
              {"Latency Time (Read)", std::int64_t{3}},
              {"Latency Time (Write)", std::int64_t{4}}});
  driver("CARD");
  ASSERT_TRUE(read().wereDriversFound);
  ASSERT_EQ(statistics_.drivers.size(), 2u);
  EXPECT_EQ(statistics_.drivers[0].path, "IOService:/SSD/IOBlockStorageDriver");
  const auto counters = *statistics_.drivers[0].counters;
  EXPECT_EQ(counters.bytesRead, ~std::uint64_t{0});
  EXPECT_EQ(counters.bytesWritten, 2u);
  EXPECT_EQ(counters.readLatency, 3u);
  EXPECT_EQ(counters.writeLatency, 4u);
  EXPECT_FALSE(statistics_.drivers[1].counters);

  fake::setProperty(counting, "Statistics",
                    std::make_shared<fake::Map>(fake::Map{{{"Bytes (Read)", std::int64_t{7}}}}));
  EXPECT_EQ(read().drivers[0].counters->bytesRead, 7u);
  EXPECT_EQ(statistics_.drivers[0].counters->bytesWritten, 0u);
}

TEST_F(MacStatistics, VolumesThatUsersSeeStandWithTheirMedia) {
  machine();
  fake::attach({.bsdName = "disk3s1", .mountPoint = "/"});
  fake::attach({.bsdName = "disk3s4", .mountPoint = "/System/Volumes/VM", .mountFlags = MNT_DONTBROWSE});
  fake::attach({.mountPoint = "/Volumes/A b", .kind = "smbfs", .source = "//host/A"});
  const std::string volume =
      "IOService:/SSD/IOBlockStorageDriver/disk0 Media/IOGUIDPartitionScheme/disk0s2 "
      "Media/AppleAPFSContainerScheme/"
      "disk3 Media/AppleAPFSContainer/disk3s1 Media";
  EXPECT_THAT(volumes(), ElementsAre("/ on " + volume, "/Volumes/A b on "));
  EXPECT_TRUE(volume.starts_with(statistics_.drivers.front().path));
}

TEST_F(MacStatistics, TheGenerationChangesWithMountsAndDriversOnly) {
  machine();
  fake::attach({.bsdName = "disk3s1", .mountPoint = "/"});
  std::uint64_t last = read().generation;
  EXPECT_NE(last, 0u);
  const auto changes = [&] { return std::exchange(last, read().generation) != last; };
  EXPECT_FALSE(changes());
  fake::attach({.bsdName = "disk9"});
  EXPECT_FALSE(changes()) << "nothing is mounted";
  fake::mountDisk("disk9", "/Volumes/NINE");
  EXPECT_TRUE(changes());
  const int late = driver("LATE");
  EXPECT_TRUE(changes());
  fake::withdraw(late);
  const int other = driver("OTHER");
  EXPECT_TRUE(changes()) << "as many as before";
  fake::withdraw(other);
  EXPECT_TRUE(changes());
  fake::unmountDisk("disk9");
  fake::detach("disk9");
  fake::attach({.bsdName = "disk10", .mountPoint = "/Volumes/NINE"});
  EXPECT_TRUE(changes()) << "the same place, another source";
  EXPECT_FALSE(changes());
}

TEST_F(MacStatistics, AFailedSearchIsNoSearchWithoutFindings) {
  machine();
  fake::attach({.bsdName = "disk3s1", .mountPoint = "/"});
  fake::failNextSearch();
  EXPECT_FALSE(read().wereDriversFound);
  EXPECT_EQ(volumes().size(), 1u);
  fake::findNothingNext();
  EXPECT_TRUE(read().wereDriversFound);
  EXPECT_THAT(statistics_.drivers, IsEmpty());
  EXPECT_EQ(read().drivers.size(), 1u);
}

}  // namespace
}  // namespace kmv::macos
