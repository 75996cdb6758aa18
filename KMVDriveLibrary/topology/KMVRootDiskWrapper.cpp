// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/KMVAPFSContainerWrapper.h>
#include <KMVDriveLibrary/KMVDriveDictionaryInterpreter.h>
#include <KMVDriveLibrary/KMVRootDiskWrapper.h>

#include <utility>
#include <vector>

#include "topology/Names.h"

using kmv::topology::bearsName;
using kmv::topology::textOf;
using kmv::topology::valueUnder;

KMVRootDiskWrapper::KMVRootDiskWrapper(std::optional<kmv::Value> bsdUnit) : bsdUnit_(std::move(bsdUnit)) {}
KMVRootDiskWrapper::~KMVRootDiskWrapper() = default;

KMVRootDiskWrapper::Wrapper KMVRootDiskWrapper::addPartitionRepresentationWithArbiterDict(
    const kmv::DictionarySnapshot& dictionary) {
  const auto name = valueUnder(kDAMediaBSDName, dictionary);
  if (Wrapper known = findExistingWrapperForBSDName(textOf(name))) {
    known->updateWithArbiterDict(dictionary);  // what it is is not looked at again: intended
    return known;
  }
  Wrapper made = createWrapperWithArbiterDict(dictionary);
  // An APFS volume is in its container's table alone.
  tableOfPartitions()->add(std::dynamic_pointer_cast<KMVVolumePartitionWrapper>(made));
  return made;
}

KMVRootDiskWrapper::Wrapper KMVRootDiskWrapper::createWrapperWithArbiterDict(
    const kmv::DictionarySnapshot& dictionary) {
  using Interpreter = KMVDriveDictionaryInterpreter;
  if (Interpreter::diskDictionaryRepresentsAppleFileSystemContainer(dictionary.get()))
    return std::make_shared<KMVAPFSContainerWrapper>(dictionary, shared_from_this());
  if (!Interpreter::doesDictionaryRepresentAnAppleFileSystemVolume(dictionary.get()))
    return std::make_shared<KMVVolumePartitionWrapper>(dictionary, shared_from_this());

  const auto name = valueUnder(kDAMediaBSDName, dictionary);
  const std::string containerName =
      determineAPFSContainerBSDNameForAPFSVolumeBSDName(textOf(name).value_or(std::string_view()));
  auto container =
      std::dynamic_pointer_cast<KMVAPFSContainerWrapper>(findExistingWrapperForBSDName(containerName));
  if (container == nullptr) {
    // A wrapper of that name that is not a container stays in the table as well: intended.
    container = std::make_shared<KMVAPFSContainerWrapper>(shared_from_this(), kmv::Value(containerName),
                                                          valueUnder(kDAMediaBSDUnit, dictionary));
    tableOfPartitions()->add(container);
  }
  return container->addAPFSVolumeRepresentationWithArbiterDict(dictionary);
}

std::string KMVRootDiskWrapper::determineAPFSContainerBSDNameForAPFSVolumeBSDName(
    std::string_view name) const {
  // Split at each "s"; the last piece goes, and "di" stands for the first, whatever it was.
  std::string container = "di";
  const std::size_t last = name.rfind('s');
  const std::size_t first = name.find('s');
  if (first != last) container += name.substr(first, last - first);
  return container;
}

KMVRootDiskWrapper::Wrapper KMVRootDiskWrapper::findExistingWrapperForBSDName(
    std::optional<std::string_view> name) const {
  for (auto& member : tableOfPartitions()->allObjects()) {
    if (bearsName(*member, name)) return std::move(member);
    const auto* const container = dynamic_cast<const KMVAPFSContainerWrapper*>(member.get());
    if (container == nullptr) continue;
    if (auto volume = container->apfsVolumeWrapperForBSDName(name)) return volume;
  }
  return nullptr;
}

std::string KMVRootDiskWrapper::description() const {
  const auto unit = bsdUnit();
  return "<disk wrapper " + (unit ? unit->description() : std::string("(null)")) + ">";
}
