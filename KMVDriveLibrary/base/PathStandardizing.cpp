// SPDX-License-Identifier: MIT
// Two routines look alike and differ: `URL::standardized` works on the text alone, `URLByStandardizingPath`
// on the path, with the file system's help. Registry keys use this one, activity records the other; they are
// not interchangeable.
#include "base/PathStandardizing.h"

#include <KMVDriveLibrary/URL.h>

#include <algorithm>
#include <vector>

#include "base/Percent.h"
#include "base/Text.h"
#include "platform/Platform.h"

namespace kmv {
namespace {

/// Drops empty components and ".", resolves ".." textually; ".." at the root stays at the root.
std::string textuallyResolved(std::string_view path) {
  std::vector<std::string_view> kept;
  for (const std::string_view component : split(path, '/')) {
    if (component.empty() || component == ".") continue;
    if (component != "..") {
      kept.push_back(component);
    } else if (!kept.empty()) {
      kept.pop_back();
    }
  }
  return std::string("/").append(joined(kept, '/'));
}

bool hasParentComponent(std::string_view path) {
  const auto components = split(path, '/');
  return std::find(components.begin(), components.end(), "..") != components.end();
}

/// Never the result of stripping an alias prefix: these folders are not aliases.
bool isProtected(std::string_view path) {
  static constexpr std::string_view kPlaces[] = {"/Applications", "/Library", "/System", "/Users",
                                                 "/Volumes",      "/bin",     "/cores",  "/dev",
                                                 "/opt",          "/private", "/sbin",   "/usr"};
  return std::any_of(std::begin(kPlaces), std::end(kPlaces),
                     [&](std::string_view place) { return isAtOrBelow(path, place); });
}

/// Fast path: true for a URL that standardising leaves unchanged, as it does nearly every mount URL.
bool isStandardAlready(std::string_view text, Files& files) {
  constexpr std::string_view kScheme = "file://";
  if (!text.starts_with(kScheme)) return false;
  const std::string_view path = text.substr(kScheme.size());
  const auto& prefixes = files.pathAliasPrefixes();
  return isCanonicalFilePath(path) && std::none_of(prefixes.begin(), prefixes.end(), [&](const auto& prefix) {
           return isAtOrBelow(path, prefix);
         });
}

std::string withoutAliasPrefix(std::string path, Files& files) {
  for (const std::string& prefix : files.pathAliasPrefixes()) {
    if (!isAtOrBelow(path, prefix) || path.size() == prefix.size()) continue;
    std::string rest = path.substr(prefix.size());
    // The first prefix that fits decides.
    return !isProtected(rest) && files.itemKind(rest) != ItemKind::none ? rest : path;
  }
  return path;
}

}  // namespace

std::string standardizedPath(std::string_view path, Files& files) {
  if (path.empty() || path.front() != '/') return std::string(path);
  std::string standard;
  if (hasParentComponent(path)) {
    if (auto real = files.realPath(std::string(path))) standard = std::move(*real);
  }
  if (standard.empty()) standard = textuallyResolved(path);
  return withoutAliasPrefix(std::move(standard), files);
}

URL URLByStandardizingPath(const URL& url) {
  Files& files = Platform::current().files();
  if (isStandardAlready(url.absoluteString(), files)) return url;
  if (!url.isFileURL()) return url;
  const std::string path = url.path();
  if (path.empty() || path.front() != '/') return url;
  return URL::fileURLWithPath(standardizedPath(path, files), url.hasDirectoryPath());
}

}  // namespace kmv
