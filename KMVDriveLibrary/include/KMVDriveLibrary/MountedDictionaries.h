// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Export.h>
#include <KMVDriveLibrary/URL.h>
#include <KMVDriveLibrary/Value.h>

#include <cstddef>
#include <utility>
#include <vector>

namespace kmv {

/// An immutable snapshot of the drives that were present at one moment, by mount URL, in ascending order of
/// the URLs.
class KMV_EXPORT MountedDictionaries {
 public:
  using Entry = std::pair<URL, DictionarySnapshot>;
  using const_iterator = std::vector<Entry>::const_iterator;

  MountedDictionaries() = default;
  /// REQUIRES: `entries` ascend strictly by URL.
  explicit MountedDictionaries(std::vector<Entry> entries) : entries_(std::move(entries)) {}

  /// The copy under `key`; null when there is none.
  DictionarySnapshot find(const URL& key) const;
  std::size_t size() const { return entries_.size(); }
  bool empty() const { return entries_.empty(); }
  const_iterator begin() const { return entries_.begin(); }
  const_iterator end() const { return entries_.end(); }

 private:
  std::vector<Entry> entries_;
};

}  // namespace kmv
