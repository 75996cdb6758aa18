// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/KMVDiskBSDBaseWrapper.h>
#include <KMVDriveLibrary/KMVRootDiskWrapper.h>

#include <utility>

#include "topology/Names.h"

KMVDiskBSDBaseWrapper::KMVDiskBSDBaseWrapper() = default;
KMVDiskBSDBaseWrapper::~KMVDiskBSDBaseWrapper() = default;

KMVDiskBSDBaseWrapper::KMVDiskBSDBaseWrapper(const kmv::DictionarySnapshot& dictionary,
                                             std::shared_ptr<KMVRootDiskWrapper> withRootVolumeWrapper)
    : rootVolumeWrapper_(std::move(withRootVolumeWrapper)) {
  readNames(dictionary);
  setBackingDictionary(dictionary);
}

void KMVDiskBSDBaseWrapper::updateWithArbiterDict(const kmv::DictionarySnapshot& dictionary) {
  setBackingDictionary(dictionary);
  readNames(dictionary);
}

/// As they stand: whether they are a text and a number is not looked at, on purpose.
void KMVDiskBSDBaseWrapper::readNames(const kmv::DictionarySnapshot& dictionary) {
  setBsdName(kmv::topology::valueUnder(kDAMediaBSDName, dictionary));
  setBsdUnit(kmv::topology::valueUnder(kDAMediaBSDUnit, dictionary));
}

std::string KMVDiskBSDBaseWrapper::description() const {
  const auto name = bsdName();
  return "<drive wrapper " + (name ? name->description() : std::string("(null)")) + ">";
}
