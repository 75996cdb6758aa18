// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/URL.h>

#include <algorithm>
#include <vector>

#include "base/Percent.h"
#include "base/Text.h"

namespace kmv {
namespace {

constexpr std::string_view kFileScheme = "file://";

/// Where the path begins in the text of a URL: after the scheme and the authority, if there are any.
std::size_t pathStart(std::string_view text) {
  if (text.starts_with("file:///")) return kFileScheme.size();  // nearly all
  const std::size_t colon = text.find_first_of(":/?#");
  if (colon == std::string_view::npos || text[colon] != ':') return 0;
  std::size_t start = colon + 1;
  if (text.substr(start, 2) == "//") {
    const std::size_t slash = text.find_first_of("/?#", start + 2);
    start = slash == std::string_view::npos ? text.size() : slash;
  }
  return start;
}

std::string_view withoutTrailingSlashes(std::string_view path) {
  while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
  return path;
}

/// Removes dot segments and keeps everything else: empty segments, surplus ".." at the start.
/// A dot segment at the end leaves a slash.
std::string withoutDotSegments(std::string_view path) {
  const bool absolute = !path.empty() && path.front() == '/';
  const auto segments = split(absolute ? path.substr(1) : path, '/');
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
  return std::string(absolute ? "/" : "").append(joined(kept, '/'));
}

}  // namespace

URL::URL(std::string text) {
  const std::size_t hash = std::hash<std::string>{}(text);
  rep_ = std::make_shared<const Rep>(Rep{std::move(text), hash});
}

URL URL::fileURLWithPath(std::string_view path, bool isDirectory) {
  std::string encoded = percentEncodedPath(withoutTrailingSlashes(path));
  if (isDirectory && (encoded.empty() || encoded.back() != '/')) encoded += '/';
  if (path.empty() || path.front() != '/') return URL(std::move(encoded));
  return URL(std::string(kFileScheme) + encoded);
}

std::optional<URL> URL::fromString(std::string_view text) {
  if (text.empty()) return std::nullopt;
  return URL(std::string(text));
}

std::string_view URL::encodedPath() const {
  const std::string_view text = rep_->text;
  const std::size_t start = pathStart(text);
  const auto endsPath = [](char c) { return c == '?' || c == '#'; };
  const auto* const end = std::find_if(text.begin() + start, text.end(), endsPath);
  return text.substr(start, static_cast<std::size_t>(end - text.begin()) - start);
}

URL URL::withEncodedPath(std::string_view encodedPath) const {
  const std::string_view text = rep_->text;
  const std::size_t start = pathStart(text);
  const std::size_t end = text.find_first_of("?#", start);
  std::string changed(text.substr(0, start));
  changed += encodedPath;
  if (end != std::string_view::npos) changed += text.substr(end);
  return URL(std::move(changed));
}

std::string URL::path() const {
  return percentDecoded(withoutTrailingSlashes(encodedPath()));
}

bool URL::isFileURL() const {
  const std::string_view text = rep_->text;
  if (text.size() < 5 || text[4] != ':') return false;
  for (std::size_t i = 0; i < 4; ++i) {
    if ((text[i] | 0x20) != "file"[i]) return false;
  }
  return true;
}

bool URL::hasDirectoryPath() const {
  const std::string_view path = encodedPath();
  return !path.empty() && path.back() == '/';
}

URL URL::appendingPathComponent(std::string_view component, bool isDirectory) const {
  std::string path(encodedPath());
  if (path.empty() || path.back() != '/') path += '/';
  while (!component.empty() && component.front() == '/') component.remove_prefix(1);
  const bool endsInSlash = !component.empty() && component.back() == '/';
  path += percentEncodedPath(component);
  if (isDirectory && !endsInSlash && path.back() != '/') path += '/';
  return withEncodedPath(path);
}

URL URL::deletingLastPathComponent() const {
  const std::string_view path = withoutTrailingSlashes(encodedPath());
  if (path == "/") return *this;
  const std::size_t slash = path.rfind('/');
  if (slash == std::string_view::npos) return withEncodedPath("./");
  return withEncodedPath(path.substr(0, slash + 1));
}

std::string URL::lastPathComponent() const {
  const std::string_view path = withoutTrailingSlashes(encodedPath());
  if (path == "/") return "/";
  return percentDecoded(path.substr(path.rfind('/') + 1));
}

URL URL::standardized() const {
  const std::string_view before = encodedPath();
  const bool lacksAuthority = isFileURL() && rep_->text.compare(5, 2, "//") != 0;
  const bool mayHaveDotSegments = before.starts_with('.') || before.find("/.") != std::string_view::npos;
  if (!lacksAuthority && !mayHaveDotSegments) return *this;  // nearly every URL
  std::string path = withoutDotSegments(before);
  if (lacksAuthority && path.starts_with('/')) {
    return URL(std::string(kFileScheme) + path +
               std::string(rep_->text, std::min(rep_->text.size(), rep_->text.find_first_of("?#"))));
  }
  return withEncodedPath(path);
}

}  // namespace kmv
