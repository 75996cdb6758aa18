// SPDX-License-Identifier: MIT
// Two routines that look alike and are not: `standardized` works on the text alone, `URLByStandardizingPath`
// on the path, with the file system's help. Registry keys use the second, activity records the first; neither
// can stand in for the other.
#include <KMVDriveLibrary/URL.h>

#include <algorithm>
#include <vector>

#include "base/PathStandardizing.h"
#include "base/Percent.h"
#include "platform/Platform.h"

namespace kmv {
namespace {

std::vector<std::string_view> splitAtSlashes(std::string_view text) {
  std::vector<std::string_view> segments;
  for (;;) {
    const std::size_t slash = text.find('/');
    segments.push_back(text.substr(0, slash));
    if (slash == std::string_view::npos) return segments;
    text.remove_prefix(slash + 1);
  }
}

std::string joined(const std::vector<std::string_view>& segments, std::string_view start) {
  std::string path(start);
  for (std::size_t i = 0; i < segments.size(); ++i) {
    if (i != 0) path += '/';
    path += segments[i];
  }
  return path;
}

/// Dot segments out, everything else kept: empty segments, surplus ".." at the start. A dot segment at the
/// end leaves a slash.
std::string withoutDotSegments(std::string_view path) {
  const bool absolute = !path.empty() && path.front() == '/';
  const auto segments = splitAtSlashes(absolute ? path.substr(1) : path);
  std::vector<std::string_view> kept;
  bool slashAtEnd = false;
  for (const std::string_view segment : segments) {
    slashAtEnd = segment == ".";
    if (segment == ".") continue;
    if (segment == ".." && !kept.empty() && kept.back() != "..") {
      kept.pop_back();
      slashAtEnd = true;
    } else {
      kept.push_back(segment);
    }
  }
  if (slashAtEnd && !kept.empty()) kept.emplace_back();
  return joined(kept, absolute ? "/" : "");
}

/// Components without empty ones and ".", and with ".." resolved textually; ".." at the root stays at the
/// root.
std::string textuallyResolved(std::string_view path) {
  std::vector<std::string_view> kept;
  for (const std::string_view component : splitAtSlashes(path)) {
    if (component.empty() || component == ".") continue;
    if (component != "..") {
      kept.push_back(component);
    } else if (!kept.empty()) {
      kept.pop_back();
    }
  }
  return joined(kept, "/");
}

bool hasParentComponent(std::string_view path) {
  const auto components = splitAtSlashes(path);
  return std::find(components.begin(), components.end(), "..") != components.end();
}

/// True for `folder` itself and everything below it.
bool isAtOrBelow(std::string_view path, std::string_view folder) {
  return path.substr(0, folder.size()) == folder &&
         (path.size() == folder.size() || path[folder.size()] == '/');
}

/// What an alias prefix is never stripped down to: these are places of their own.
bool isProtected(std::string_view path) {
  static constexpr std::string_view kPlaces[] = {"/Applications", "/Library", "/System", "/Users",
                                                 "/Volumes",      "/bin",     "/cores",  "/dev",
                                                 "/opt",          "/private", "/sbin",   "/usr"};
  return std::any_of(std::begin(kPlaces), std::end(kPlaces),
                     [&](std::string_view place) { return isAtOrBelow(path, place); });
}

/// True for a URL that standardising would give back letter by letter, as it does for nearly every mount URL.
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
    return !isProtected(rest) && files.itemKind(rest) != ItemKind::none
               ? rest
               : path;  // the first prefix that fits decides
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

URL URL::standardized() const {
  std::string path = withoutDotSegments(encodedPath());
  if (isFileURL() && rep_->text.compare(5, 2, "//") != 0 && !path.empty() && path.front() == '/') {
    return URL("file://" + path +
               std::string(rep_->text, std::min(rep_->text.size(), rep_->text.find_first_of("?#"))));
  }
  return withEncodedPath(path);
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
