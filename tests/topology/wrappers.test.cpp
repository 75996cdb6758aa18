// SPDX-License-Identifier: MIT
#include "support/Registry.h"
#include "support/Testing.h"

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

}  // namespace
}  // namespace kmv::simulation
