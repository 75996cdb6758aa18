// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Export.h>

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kmv {

/// A 128-bit universally unique identifier.
class KMV_EXPORT UUID {
 public:
  using Bytes = std::array<std::uint8_t, 16>;

  explicit constexpr UUID(const Bytes& bytes) : bytes_(bytes) {}

  /// Reads the 8-4-4-4-12 form in either letter case; none when `text` is anything else.
  static std::optional<UUID> fromString(std::string_view text);

  /// The canonical text: 8-4-4-4-12 hexadecimal digits, upper case.
  std::string string() const;

  constexpr const Bytes& bytes() const { return bytes_; }
  /// True for the all-zero UUID, which identifies nothing.
  constexpr bool isNull() const { return bytes_ == Bytes{}; }

  friend bool operator==(const UUID&, const UUID&) = default;
  friend auto operator<=>(const UUID&, const UUID&) = default;

 private:
  Bytes bytes_;
};

}  // namespace kmv
