// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Export.h>
#include <KMVDriveLibrary/URL.h>
#include <KMVDriveLibrary/UUID.h>

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace kmv {

class Dictionary;
class Value;

/// Anything with identity that a drive dictionary can hold: topology wrappers, a host's own objects.
/// Held by `std::shared_ptr`; two object values are equal when they are the same object.
class KMV_EXPORT Object {
 public:
  virtual ~Object();
  /// A short text for logs.
  virtual std::string description() const;
};

/// An instant: seconds since 2001-01-01 00:00:00 UTC.
struct Date {
  /// 2001-01-01 00:00 UTC, from which dates count, in seconds since 1970-01-01 00:00 UTC.
  static constexpr double kReferenceDate = 978307200;
  double secondsSinceReferenceDate = 0;
  friend bool operator==(const Date&, const Date&) = default;
};

using Data = std::vector<std::byte>;
using Array = std::vector<Value>;

/// An immutable snapshot of a dictionary.
/// Never null where the library returns one, unless the member says so.
using DictionarySnapshot = std::shared_ptr<const Dictionary>;

/// One value of a description or drive dictionary: a variant of eleven kinds.
///
/// Booleans and numbers are different kinds, yet equal when their numbers are (true equals 1 and 1.0), as on
/// the platform that the vocabulary comes from.
/// Values are immutable and may be shared between threads; large ones share their storage.
class KMV_EXPORT Value {
 public:
  enum class Kind { boolean, integer, real, text, url, uuid, date, data, array, dictionary, object };

  // NOLINTBEGIN(google-explicit-constructor): keeps dictionary literals readable.
  template <std::same_as<bool> T>
  Value(T value) : storage_(value) {}
  /// Every signed and unsigned 64-bit integer is kept exactly.
  template <std::integral T>
  requires(!std::same_as<T, bool>) Value(T value) : storage_(fromIntegral(value)) {}
  Value(double value) : storage_(value) {}
  Value(std::string value) : storage_(std::move(value)) {}
  Value(std::string_view value) : storage_(std::string(value)) {}
  Value(const char* value) : storage_(std::string(value)) {}
  Value(URL value) : storage_(std::move(value)) {}
  Value(UUID value) : storage_(value) {}
  Value(Date value) : storage_(value) {}
  Value(Data value) : storage_(std::make_shared<const Data>(std::move(value))) {}
  Value(Array value);
  Value(Dictionary value);
  template <std::derived_from<Object> T>
  Value(std::shared_ptr<T> value) : storage_(std::shared_ptr<Object>(std::move(value))) {}
  // NOLINTEND(google-explicit-constructor)

  Kind kind() const {
    return std::holds_alternative<std::uint64_t>(storage_) ? Kind::integer
                                                           : static_cast<Kind>(storage_.index());
  }
  /// True for integers, reals and booleans, since a boolean is a number object.
  bool isNumber() const { return kind() <= Kind::real; }

  /// True for any non-zero number; false for anything that is not a number.
  bool boolValue() const;
  /// The number as a double; 0 for anything that is not a number.
  double doubleValue() const;
  /// The number as an integer, reals truncated towards zero, clamped to the range; 0 for anything that is not a
  /// number.
  std::int64_t integerValue() const;
  /// The same as an unsigned integer, but a negative one modulo 2^64, as the platform's numbers do.
  std::uint64_t unsignedValue() const;

  /// Pointers into this value; null when it is of another kind.
  const bool* asBoolean() const { return std::get_if<bool>(&storage_); }
  const std::string* asText() const { return std::get_if<std::string>(&storage_); }
  const URL* asURL() const { return std::get_if<URL>(&storage_); }
  const UUID* asUUID() const { return std::get_if<UUID>(&storage_); }
  const Date* asDate() const { return std::get_if<Date>(&storage_); }
  const Data* asData() const;
  const Array* asArray() const;
  const Dictionary* asDictionary() const;
  /// The object; null when this is of another kind.
  std::shared_ptr<Object> asObject() const;

  /// The printed form used in log lines: text verbatim, booleans as 1 and 0, containers over several lines in
  /// ascending key order, quoting everything but plain ASCII letters and digits.
  std::string description() const;

  KMV_EXPORT friend bool operator==(const Value& a, const Value& b);

 private:
  using Storage =
      std::variant<bool, std::int64_t, double, std::string, URL, UUID, Date, std::shared_ptr<const Data>,
                   std::shared_ptr<const Array>, std::shared_ptr<const Dictionary>, std::shared_ptr<Object>,
                   std::uint64_t>;  // the last: only integers above the signed range (canonical)

  template <std::integral T>
  static Storage fromIntegral(T value) {
    if (std::in_range<std::int64_t>(value)) return Storage(static_cast<std::int64_t>(value));
    return Storage(static_cast<std::uint64_t>(value));
  }

  Storage storage_;
};

/// A map from text to values: the form of every description, drive dictionary and user info.
/// A plain value: copying it copies the entries.
/// Enumeration order: ascending byte order of the keys.
class KMV_EXPORT Dictionary {
 public:
  using Entry = std::pair<std::string, Value>;
  using const_iterator = std::vector<Entry>::const_iterator;

  Dictionary() = default;
  /// A later entry of the same key wins.
  Dictionary(std::initializer_list<Entry> entries);

  /// The value of `key`; null when there is none.
  /// Valid until the dictionary changes.
  const Value* find(std::string_view key) const;
  bool contains(std::string_view key) const { return find(key) != nullptr; }

  /// Typed look-ups; null, none or zero when the key is absent or of another kind.
  const std::string* text(std::string_view key) const;
  const URL* url(std::string_view key) const;
  const UUID* uuid(std::string_view key) const;
  /// The number under `key`; an absent one reads as 0.
  double doubleValue(std::string_view key) const;
  /// `Value::boolValue` of the entry; none when the key is absent.
  std::optional<bool> boolValue(std::string_view key) const;

  void set(std::string_view key, Value value);
  void remove(std::string_view key);
  /// Sets every entry of `other`, overwriting equal keys.
  void merge(const Dictionary& other);

  std::size_t size() const { return entries_.size(); }
  bool empty() const { return entries_.empty(); }
  const_iterator begin() const { return entries_.begin(); }
  const_iterator end() const { return entries_.end(); }

  KMV_EXPORT friend bool operator==(const Dictionary& a, const Dictionary& b);

 private:
  std::vector<Entry>::iterator lowerBound(std::string_view key);

  std::vector<Entry> entries_;
};

}  // namespace kmv
