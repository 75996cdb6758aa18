// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/MountedDictionaries.h>

#include <algorithm>

namespace kmv {

DictionarySnapshot MountedDictionaries::find(const URL& key) const {
  const auto it =
      std::lower_bound(entries_.begin(), entries_.end(), key,
                       [](const Entry& entry, const URL& wanted) { return entry.first < wanted; });
  return it != entries_.end() && it->first == key ? it->second : nullptr;
}

}  // namespace kmv
