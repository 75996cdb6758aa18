// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Export.h>

#include <compare>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace kmv {

/// An immutable URL, compared by its text.
///
/// Equality: textual, byte for byte; a trailing slash (a directory URL) makes a different URL.
///           Nothing is normalised unless a member's name says so.
/// Paths:    bytes, not characters.
///           Every byte but NUL may occur in a path; everything but plain ASCII text is percent-encoded, so
///           `absoluteString` is always ASCII for URLs made from paths.
/// Threads:  values are immutable and may be shared freely.
///           Copies share their text (O(1)).
class KMV_EXPORT URL {
 public:
  /// The file URL of an absolute path.
  /// A directory URL ends in "/"; otherwise trailing slashes are dropped ("/" stays).
  /// Never asks the file system.
  /// A relative `path` gives a relative URL without scheme.
  static URL fileURLWithPath(std::string_view path, bool isDirectory);

  /// The URL with exactly this text, relative or absolute; none for an empty text.
  static std::optional<URL> fromString(std::string_view text);

  /// The whole text, percent-encoded.
  const std::string& absoluteString() const { return rep_->text; }

  /// The path's bytes, decoded, without the trailing slash ("/" stays).
  /// A "%" without two hexadecimal digits after it is kept literally.
  std::string path() const;

  /// True when the scheme is "file".
  bool isFileURL() const;
  /// True when the path ends in "/".
  bool hasDirectoryPath() const;

  /// This URL with one more component, given as bytes; "/" within it separates further components.
  URL appendingPathComponent(std::string_view component, bool isDirectory) const;

  /// The enclosing directory: "/a/b" and "/a/b/" both give "/a/".
  /// The root is its own parent.
  URL deletingLastPathComponent() const;

  /// The decoded last component ("/" for the root).
  std::string lastPathComponent() const;

  /// Dot segments removed from the text, nothing else: purely textual, keeps "//" and surplus leading "..",
  /// never touches the file system.
  /// Activity records are keyed with this routine; registry keys use `URLByStandardizingPath`.
  /// Selector: standardizedURL
  URL standardized() const;

  friend bool operator==(const URL& a, const URL& b) {
    return a.rep_ == b.rep_ || (a.rep_->hash == b.rep_->hash && a.rep_->text == b.rep_->text);
  }
  /// Byte order of the texts; the enumeration order of every container keyed by URL.
  friend std::strong_ordering operator<=>(const URL& a, const URL& b) {
    return a.rep_ == b.rep_ ? std::strong_ordering::equal : a.rep_->text <=> b.rep_->text;
  }
  std::size_t hash() const { return rep_->hash; }

 private:
  struct Rep {
    std::string text;
    std::size_t hash;
  };
  explicit URL(std::string text);
  std::string_view encodedPath() const;
  URL withEncodedPath(std::string_view encodedPath) const;

  std::shared_ptr<const Rep> rep_;
};

/// `url` with its path standardised as the platform does it for paths: runs of "/" collapsed, "." removed,
/// ".." resolved (through the file system when the path exists, textually otherwise), and the platform's
/// alias prefixes stripped.
/// The trailing slash stays as it was.
/// Symbolic links are not resolved unless a ".." is present.
/// Any URL but an absolute file URL comes back unchanged.
///
/// Thread: any.
/// Touches the file system only when the path has a ".." component or one of the platform's alias prefixes,
/// which no mount URL that the platform reports has.
/// Selector: URLByStandardizingPath
KMV_EXPORT URL URLByStandardizingPath(const URL& url);

}  // namespace kmv

template <>
struct std::hash<kmv::URL> {
  std::size_t operator()(const kmv::URL& url) const noexcept { return url.hash(); }
};
