// SPDX-License-Identifier: MIT
#include "base/DifferingKeys.h"

namespace kmv {

ChangedKeys differingKeys(const Dictionary& a, const Dictionary& b) {
  ChangedKeys keys;
  auto left = a.begin(), right = b.begin();
  while (left != a.end() || right != b.end()) {
    if (right == b.end() || (left != a.end() && left->first < right->first)) {
      keys.push_back((left++)->first);
    } else if (left == a.end() || right->first < left->first) {
      keys.push_back((right++)->first);
    } else {
      if (!(left->second == right->second)) keys.push_back(left->first);
      ++left;
      ++right;
    }
  }
  return keys;
}

}  // namespace kmv
