// SPDX-License-Identifier: MIT
#include <cstdlib>
#include <string>
#include <vector>

#include "platform/linux/mounts/MountTree.h"
#include "targets.h"

namespace kmv::fuzz {
namespace {

constexpr std::size_t kLongestInput = 16384;

bool everythingIsAFolder(const MountEntry&, bool) {
  return true;
}

std::vector<std::string> verdicts(const MountTree& tree) {
  std::vector<std::string> lines;
  tree.forEach([&](const MountEntry& entry, std::string_view rule) {
    lines.push_back(std::to_string(entry.id) + " " + entry.point + " " + std::string(rule));
  });
  return lines;
}

}  // namespace

void mountInfo(std::string_view input) {
  if (input.size() > kLongestInput) return;
  const std::size_t border = input.find('\0');
  const std::string_view secondText = border == std::string_view::npos ? input : input.substr(border + 1);
  auto first = parseMountInfo(input.substr(0, border));
  auto second = parseMountInfo(secondText);

  MountTree fresh(everythingIsAFolder);
  fresh.apply({{}, second});

  MountTree stepwise(everythingIsAFolder);
  const MountDelta toFirst = diffMountTables({}, first);
  stepwise.apply(toFirst);
  stepwise.apply(diffMountTables(first, second));
  if (verdicts(stepwise) != verdicts(fresh)) std::abort();
}

}  // namespace kmv::fuzz
