// SPDX-License-Identifier: MIT
#include "activity/DriverMatches.h"

#include <algorithm>
#include <string>
#include <string_view>

#include "base/Text.h"

namespace kmv::activity {
namespace {

constexpr std::size_t kNone = static_cast<std::size_t>(-1);

struct Prefix {
  std::string text;       // in upper case
  std::string_view path;  // as it stands
  std::size_t driver;
  std::size_t shorter = kNone;  // the longest other prefix of this one
};

/// Links each prefix to the longest other one that it begins with. REQUIRES: ascending order of the texts.
void linkToShorterOnes(std::vector<Prefix>& prefixes) {
  for (std::size_t i = 1; i < prefixes.size(); ++i) {
    std::size_t above = i - 1;
    while (above != kNone && !prefixes[i].text.starts_with(prefixes[above].text))
      above = prefixes[above].shorter;
    prefixes[i].shorter = above;
  }
}

/// The drivers in ascending order of their paths in upper case.
std::vector<Prefix> prefixesOf(const DriveStatistics& statistics) {
  std::vector<Prefix> prefixes;
  prefixes.reserve(statistics.drivers.size());
  for (std::size_t i = 0; i < statistics.drivers.size(); ++i) {
    const std::string& path = statistics.drivers[i].path;
    if (!path.empty()) prefixes.push_back({upperCase(path), path, i});  // an empty path matches nothing
  }
  std::sort(prefixes.begin(), prefixes.end(), [](const auto& a, const auto& b) { return a.text < b.text; });
  linkToShorterOnes(prefixes);
  return prefixes;
}

/// The last prefix that is not greater than `media`. Every prefix of `media` is a prefix of that one too, or
/// is that one, so all of them are on its chain.
std::size_t lastNotAfter(const std::vector<Prefix>& prefixes, const std::string& media) {
  const auto after =
      std::upper_bound(prefixes.begin(), prefixes.end(), media,
                       [](const std::string& text, const Prefix& prefix) { return text < prefix.text; });
  return after == prefixes.begin() ? kNone : static_cast<std::size_t>(after - prefixes.begin()) - 1;
}

}  // namespace

std::vector<DriverMatch> driverMatches(const DriveStatistics& statistics) {
  const std::vector<Prefix> prefixes = prefixesOf(statistics);
  std::vector<DriverMatch> matches;
  std::vector<const Prefix*> ofVolume;
  for (std::size_t volume = 0; volume < statistics.volumes.size(); ++volume) {
    const std::string media = upperCase(statistics.volumes[volume].mediaPath);
    ofVolume.clear();
    for (std::size_t at = lastNotAfter(prefixes, media); at != kNone; at = prefixes[at].shorter) {
      if (media.starts_with(prefixes[at].text)) ofVolume.push_back(&prefixes[at]);
    }
    std::sort(ofVolume.begin(), ofVolume.end(),
              [](const auto* a, const auto* b) { return a->path < b->path; });
    for (const Prefix* prefix : ofVolume) matches.push_back({volume, prefix->driver});
  }
  return matches;
}

}  // namespace kmv::activity
