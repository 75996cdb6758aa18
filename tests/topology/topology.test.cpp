// SPDX-License-Identifier: MIT
#include "support/Registry.h"

namespace kmv::simulation {
namespace {

using Container = std::shared_ptr<KMVAPFSContainerWrapper>;
using Volume = std::shared_ptr<KMVAPFSVolumeWrapper>;

/// One whole disk, unit 3, on a system that knows APFS, and the dictionaries that keep its wrappers alive.
class Wrappers : public ::testing::Test {
 protected:
  Wrappers() {
    machine.setOperatingSystemVersion(10, 15);
    machine.addIOService("disk3", "disk3", {"AppleAPFSContainer"});
    KMVDiskArbiter::sharedInstance();
  }

  static DictionarySnapshot described(const std::string& name, const std::string& kind) {
    return std::make_shared<const Dictionary>(
        Dictionary{{"DAMediaBSDName", name}, {"DAMediaBSDUnit", 3}, {"DAVolumeKind", kind}});
  }
  KMVRootDiskWrapper::Wrapper add(const DictionarySnapshot& dictionary) {
    return held.emplace_back(root->addPartitionRepresentationWithArbiterDict(dictionary));
  }
  Volume addVolume(const std::string& name) {
    return std::dynamic_pointer_cast<KMVAPFSVolumeWrapper>(add(described(name, "apfs")));
  }
  std::vector<std::shared_ptr<KMVVolumePartitionWrapper>> filed() {
    return root->tableOfPartitions()->allObjects();
  }

  SimulatedPlatform& machine = SimulatedPlatform::install();
  std::shared_ptr<KMVRootDiskWrapper> root = std::make_shared<KMVRootDiskWrapper>(Value(3));
  std::vector<KMVRootDiskWrapper::Wrapper> held;
};

TEST_F(Wrappers, AContainerIsMadeForItsVolumeAndAdoptedWhenItComes) {
  const Volume first = addVolume("disk3s1");
  ASSERT_NE(first, nullptr);
  const Container container = first->parentContainerWrapper();
  EXPECT_EQ(container->bsdName(), Value("disk3"));
  EXPECT_EQ(container->bsdUnit(), Value(3));
  EXPECT_EQ(container->backingDictionary(), nullptr);
  EXPECT_EQ(container->rootVolumeWrapper(), root);
  EXPECT_THAT(filed(), ::testing::ElementsAre(container)) << "volumes are in their container only";
  EXPECT_TRUE(first->arrayOfSiblingAPFSVolumes().empty());

  const Volume second = addVolume("disk3s2");
  EXPECT_EQ(second->parentContainerWrapper(), container);
  EXPECT_THAT(first->arrayOfSiblingAPFSVolumes(), ::testing::ElementsAre(second));
  EXPECT_THAT(container->allChildAPFSVolumes(nullptr), ::testing::ElementsAre(first, second));

  const auto own = described("disk3", "");
  EXPECT_EQ(add(own), container);
  EXPECT_EQ(container->backingDictionary(), own);
  const auto again = described("disk3s1", "exfat");
  EXPECT_EQ(add(again), first) << "what it is is not looked at again";
  EXPECT_EQ(first->backingDictionary(), again);
  EXPECT_EQ(root->findExistingWrapperForBSDName("disk3s2"), second);
  EXPECT_EQ(root->findExistingWrapperForBSDName("disk3s9"), nullptr);
  EXPECT_EQ(root->findExistingWrapperForBSDName(std::nullopt), nullptr);
  first->setParentContainerWrapper(nullptr);
  EXPECT_TRUE(first->arrayOfSiblingAPFSVolumes().empty());
}

TEST_F(Wrappers, AContainerThatCameFirstTakesItsVolumes) {
  const auto container = add(described("disk3", ""));
  EXPECT_EQ(addVolume("disk3s1")->parentContainerWrapper(), container);
  const Volume snapshot = addVolume("disk3s1s2");
  EXPECT_EQ(snapshot->parentContainerWrapper()->bsdName(), Value("disk3s1")) << "the rule knows letters only";
  EXPECT_EQ(filed().size(), 2u);
}

TEST_F(Wrappers, AnotherWrapperOfTheContainersNameStaysBesideIt) {
  machine.setOperatingSystemVersion(11, 0);
  const auto partition = add(described("disk4", "exfat"));
  const auto early = add(described("disk4s1", "apfs"));
  EXPECT_EQ(std::dynamic_pointer_cast<KMVAPFSVolumeWrapper>(early), nullptr) << "this system has no APFS";
  EXPECT_NE(std::dynamic_pointer_cast<KMVVolumePartitionWrapper>(early), nullptr);
  machine.setOperatingSystemVersion(10, 12);
  const Volume volume = addVolume("disk4s2");
  EXPECT_THAT(filed(), ::testing::ElementsAre(partition, early, volume->parentContainerWrapper()));
  EXPECT_EQ(volume->parentContainerWrapper()->bsdName(), partition->bsdName());
  EXPECT_EQ(addVolume("disk4s3")->parentContainerWrapper()->allChildAPFSVolumes().size(), 1u)
      << "the partition of that name is found first, each time";
}

TEST_F(Wrappers, TheContainersNameComesFromTheLettersOfTheVolumes) {
  std::string names;
  for (const char* volume : {"disk3s1", "disk10s4", "disk3s1s2", "disk3", "", "sdas1", "ss"})
    names += root->determineAPFSContainerBSDNameForAPFSVolumeBSDName(volume) + " ";
  EXPECT_EQ(names, "disk3 disk10 disk3s1 di di disda dis ");
}

TEST_F(Wrappers, NamesAreTakenAsTheyStandAndEverythingGoesWithTheLastOneThatIsHeld) {
  const auto odd = std::make_shared<const Dictionary>(Dictionary{{"DAMediaBSDName", 7}});
  EXPECT_EQ(add(odd)->bsdName(), Value(7));
  EXPECT_FALSE(add(odd)->bsdUnit());
  EXPECT_FALSE(add(nullptr)->bsdName());
  EXPECT_EQ(filed().size(), 3u) << "without a text for a name nothing is found";
  held.clear();
  const std::weak_ptr<KMVRootDiskWrapper> disk = root;
  const std::weak_ptr<KMVAPFSContainerWrapper> container = addVolume("disk3s1")->parentContainerWrapper();
  addVolume("disk3s2");
  add(described("disk3s9", "exfat"));
  root.reset();
  held.erase(held.begin() + 1, held.end());
  EXPECT_EQ(disk.lock()->tableOfPartitions()->count(), 1u);
  EXPECT_EQ(container.lock()->allChildAPFSVolumes().size(), 1u);
  held.clear();
  EXPECT_TRUE(disk.expired());
  EXPECT_TRUE(container.expired());
}

std::shared_ptr<KMVDiskBSDBaseWrapper> wrapperOf(const Dictionary& drive) {
  const Value* wrapper = drive.find(kDiskWrapperKey);
  return wrapper == nullptr ? nullptr : std::dynamic_pointer_cast<KMVDiskBSDBaseWrapper>(wrapper->asObject());
}

class Manager : public RegistryTest {
 protected:
  KMVDriveWrapperManager& manager = KMVDriveWrapperManager::sharedInstance();
};

TEST_F(Manager, EveryAnnouncedDriveCarriesItsWrapperAndAUnitGoesWithItsLastDrive) {
  const auto plugInPart = [&](const std::string& name) {
    return machine.plugIn({.mountPoint = "/Volumes/" + name, .bsdName = name, .unit = 4});
  };
  const DiskId first = plugInPart("disk4s1"), second = plugInPart("disk4s2");
  registry.start();
  ASSERT_EQ(registry.heard.size(), 2u);
  std::weak_ptr<KMVRootDiskWrapper> disk;
  for (const Heard& one : registry.heard) {
    const auto wrapper = wrapperOf(*one.object.dictionary());
    ASSERT_NE(wrapper, nullptr);
    EXPECT_EQ(wrapper->bsdUnit(), Value(4));
    EXPECT_TRUE(disk.expired() || disk.lock() == wrapper->rootVolumeWrapper());
    disk = wrapper->rootVolumeWrapper();
  }
  EXPECT_EQ(manager.volumeWrappers(), (KMVDriveWrapperManager::VolumeWrappers{{Value(4.0), disk.lock()}}));
  EXPECT_EQ(disk.lock()->tableOfPartitions()->count(), 2u);

  const auto forgetNews = [&] {
    news();
    registry.heard.clear();
  };
  forgetNews();
  machine.unmount(first);
  machine.unplug(second);
  forgetNews();
  EXPECT_TRUE(disk.expired());
  EXPECT_TRUE(manager.allVolumeWrappers().empty());
  machine.mount(first, "/Volumes/disk4s1");
  machine.runUntilIdle();
  EXPECT_EQ(manager.volumeWrappers().size(), 1u);
}

TEST_F(Manager, ADriveWithoutANameOrANumberIsLoggedAndLeftAsItIs) {
  Lines lines;
  OrvaneLog::defaultLog().setSink([&](OrvaneLog::Level level, std::string_view line) {
    EXPECT_EQ(level, OrvaneLog::Level::debug);
    lines.emplace_back(line);
  });
  const auto isFiled = [&](const Dictionary& contents) {
    const auto drive = std::make_shared<DriveDictionary>(contents);
    const DictionarySnapshot before = drive->snapshot();  // whoever holds the drive's content
    if (!manager.addInformationAboutDiskDictionary(drive)) return *drive->snapshot() != contents;
    EXPECT_EQ(wrapperOf(*drive->snapshot())->backingDictionary(), nullptr) << "nobody keeps its copy";
    return true;
  };
  EXPECT_TRUE(isFiled({{"DAMediaBSDName", "disk4"}, {"DAMediaBSDUnit", 4}}));
  EXPECT_TRUE(lines.empty());
  EXPECT_FALSE(isFiled({{"DAMediaBSDUnit", 4}, {"DAVolumeName", "A"}}));
  EXPECT_EQ(lines,
            (Lines{"KMV-Could not find either name 'nil' or unit '4'", "KMV-RejectedDriveInfo",
                   "KMV-RejectedDriveInfo: DAMediaBSDUnit : 4", "KMV-RejectedDriveInfo: DAVolumeName : A"}));
  lines.clear();
  EXPECT_FALSE(isFiled({{"DAMediaBSDName", "disk4"}, {"DAMediaBSDUnit", "4"}}));
  EXPECT_EQ(lines.at(0), "KMV-Could not find either name 'disk4' or unit '4'");
  EXPECT_FALSE(isFiled({{"DAMediaBSDName", 4}, {"DAMediaBSDUnit", 4}}));
  EXPECT_TRUE(manager.volumeWrappers().empty());
  EXPECT_DEATH(manager.addInformationAboutDiskDictionary(nullptr), "without a drive");
  OrvaneLog::defaultLog().setSink(nullptr);
}

using IOVolumes = RegistryTest;

TEST_F(IOVolumes, TellTheMediumByTheKindFirstAndThenByTheModel) {
  static_assert(static_cast<int>(IOMediaKind::solidState) == 1 && static_cast<int>(IOMediaKind::fuse) == 2 &&
                static_cast<int>(IOMediaKind::generic) == 5);
  struct Case {
    const char *path, *kind, *model;
    IOMediaKind medium;
  };
  const Case cases[] = {{"/Volumes/Fuse", "macFUSE", "Some SSD", IOMediaKind::fuse},
                        {"/Volumes/Fast", "exfat", "Quick sSd 970", IOMediaKind::solidState},
                        {"/Volumes/Plain", "exfat", "Spinning Disk", IOMediaKind::generic},
                        {"/Volumes/Nameless", "exfat", "", IOMediaKind::generic}};
  std::map<std::string, IOMediaKind> expected, found;
  for (const Case& c : cases) {
    machine.plugIn({.mountPoint = c.path, .kind = c.kind, .model = c.model});
    expected[c.path] = c.medium;
  }
  int calls = 0;
  const auto count = [&](const IOVolume&, bool& stop) { stop = ++calls == 3; };
  arbiter.enumerateIOVolumes(count);
  EXPECT_EQ(calls, 0) << "nothing is present before the start";
  registry.start();
  arbiter.enumerateIOVolumes([&](const IOVolume& volume, bool&) {
    found[volume.volumeURL.path()] = volume.mediaKind;
    EXPECT_FALSE(volume.capacity || volume.availableCapacity || volume.preferredBlockSize);
  });
  EXPECT_EQ(found, expected);
  arbiter.enumerateIOVolumes(count);
  EXPECT_EQ(calls, 3) << "stopped";
  registry.drive("/Volumes/Plain")->remove(kDiskURLKey);
  arbiter.enumerateIOVolumes(count);
  EXPECT_EQ(calls, 6) << "without a mount URL there is no volume";
}

TEST_F(IOVolumes, TheVolumeOfALocationHasTheRootThatWasFound) {
  machine.plugIn({.name = "Card", .mountPoint = "/Volumes/Card", .model = "SSD"});
  machine.createItem("/Volumes/Card/a/b.mov");
  registry.start();
  const auto volume = arbiter.rootVolume(file("/Volumes/Card/a/b.mov"));
  ASSERT_TRUE(volume);
  EXPECT_EQ(volume->volumeURL, folder("/Volumes/Card"));
  EXPECT_EQ(volume->mediaKind, IOMediaKind::solidState);
  EXPECT_FALSE(arbiter.rootVolume(folder("/Volumes/Nowhere")));
  CrossAppFileManager::defaultManager().setStandardizedVolumeRootForFilePathURL(
      [](const URL&) { return URL::fromString("http://nowhere"); });
  EXPECT_FALSE(arbiter.rootVolume(folder("/Volumes/Card"))) << "what raises elsewhere is nothing here";
}

}  // namespace
}  // namespace kmv::simulation
