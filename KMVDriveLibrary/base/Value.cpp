// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/Value.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace kmv {
namespace {

/// -2^63, 2^63 and 2^64, exact as doubles.
constexpr double kIntegerRangeBegin = -9223372036854775808.0;
constexpr double kIntegerRangeEnd = 9223372036854775808.0;
constexpr double kUnsignedRangeEnd = 18446744073709551616.0;

/// REQUIRES: an integer or a boolean.
bool equalNumbers(double real, const Value& integer) {
  if (!(real >= kIntegerRangeBegin && real < kUnsignedRangeEnd)) return false;  // also for NaN
  if (real >= kIntegerRangeEnd)
    return integer.integerValue() > 0 && static_cast<std::uint64_t>(real) == integer.unsignedValue();
  return std::trunc(real) == real && static_cast<std::int64_t>(real) == integer.integerValue();
}

}  // namespace

Object::~Object() = default;
std::string Object::description() const {
  return "<object>";
}

Value::Value(Array value) : storage_(std::make_shared<const Array>(std::move(value))) {}
Value::Value(Dictionary value) : storage_(std::make_shared<const Dictionary>(std::move(value))) {}

bool Value::boolValue() const {
  switch (kind()) {
    case Kind::boolean:
      return std::get<bool>(storage_);
    case Kind::integer:
      return unsignedValue() != 0;
    case Kind::real:
      return std::get<double>(storage_) != 0;
    default:
      return false;
  }
}

double Value::doubleValue() const {
  switch (kind()) {
    case Kind::boolean:
      return std::get<bool>(storage_) ? 1 : 0;
    case Kind::integer:
      return integerValue() < 0 ? static_cast<double>(integerValue()) : static_cast<double>(unsignedValue());
    case Kind::real:
      return std::get<double>(storage_);
    default:
      return 0;
  }
}

std::int64_t Value::integerValue() const {
  if (const auto* integer = std::get_if<std::int64_t>(&storage_)) return *integer;
  if (std::holds_alternative<std::uint64_t>(storage_)) return std::numeric_limits<std::int64_t>::max();
  if (kind() != Kind::real) return boolValue() ? 1 : 0;
  const double real = std::get<double>(storage_);
  if (std::isnan(real)) return 0;
  if (real < kIntegerRangeBegin) return std::numeric_limits<std::int64_t>::min();
  if (real >= kIntegerRangeEnd) return std::numeric_limits<std::int64_t>::max();
  return static_cast<std::int64_t>(real);
}

std::uint64_t Value::unsignedValue() const {
  if (const auto* large = std::get_if<std::uint64_t>(&storage_)) return *large;
  const auto* real = std::get_if<double>(&storage_);
  if (real == nullptr || !(*real >= kIntegerRangeEnd)) return static_cast<std::uint64_t>(integerValue());
  return *real < kUnsignedRangeEnd ? static_cast<std::uint64_t>(*real)
                                   : std::numeric_limits<std::uint64_t>::max();
}

const Data* Value::asData() const {
  const auto* data = std::get_if<std::shared_ptr<const Data>>(&storage_);
  return data == nullptr ? nullptr : data->get();
}

const Array* Value::asArray() const {
  const auto* array = std::get_if<std::shared_ptr<const Array>>(&storage_);
  return array == nullptr ? nullptr : array->get();
}

const Dictionary* Value::asDictionary() const {
  const auto* dictionary = std::get_if<std::shared_ptr<const Dictionary>>(&storage_);
  return dictionary == nullptr ? nullptr : dictionary->get();
}

std::shared_ptr<Object> Value::asObject() const {
  const auto* object = std::get_if<std::shared_ptr<Object>>(&storage_);
  return object == nullptr ? nullptr : *object;
}

bool operator==(const Value& a, const Value& b) {
  if (a.isNumber() && b.isNumber()) {
    const bool aIsReal = a.kind() == Value::Kind::real;
    const bool bIsReal = b.kind() == Value::Kind::real;
    if (aIsReal && bIsReal) return a.doubleValue() == b.doubleValue();
    if (aIsReal) return equalNumbers(a.doubleValue(), b);
    if (bIsReal) return equalNumbers(b.doubleValue(), a);
    return a.integerValue() == b.integerValue() && a.unsignedValue() == b.unsignedValue();
  }
  if (a.kind() != b.kind()) return false;
  switch (a.kind()) {
    case Value::Kind::data:
      return *a.asData() == *b.asData();
    case Value::Kind::array:
      return *a.asArray() == *b.asArray();
    case Value::Kind::dictionary:
      return *a.asDictionary() == *b.asDictionary();
    default:
      return a.storage_ == b.storage_;
  }
}

Dictionary::Dictionary(std::initializer_list<Entry> entries) {
  entries_.reserve(entries.size());
  for (const Entry& entry : entries) set(entry.first, entry.second);
}

std::vector<Dictionary::Entry>::iterator Dictionary::lowerBound(std::string_view key) {
  return std::lower_bound(entries_.begin(), entries_.end(), key,
                          [](const Entry& entry, std::string_view wanted) { return entry.first < wanted; });
}

const Value* Dictionary::find(std::string_view key) const {
  const auto it = const_cast<Dictionary*>(this)->lowerBound(key);
  return it != entries_.end() && it->first == key ? &it->second : nullptr;
}

const std::string* Dictionary::text(std::string_view key) const {
  const Value* value = find(key);
  return value == nullptr ? nullptr : value->asText();
}

const URL* Dictionary::url(std::string_view key) const {
  const Value* value = find(key);
  return value == nullptr ? nullptr : value->asURL();
}

const UUID* Dictionary::uuid(std::string_view key) const {
  const Value* value = find(key);
  return value == nullptr ? nullptr : value->asUUID();
}

double Dictionary::doubleValue(std::string_view key) const {
  const Value* value = find(key);
  return value == nullptr ? 0 : value->doubleValue();
}

std::optional<bool> Dictionary::boolValue(std::string_view key) const {
  const Value* value = find(key);
  return value == nullptr ? std::nullopt : std::optional<bool>(value->boolValue());
}

void Dictionary::set(std::string_view key, Value value) {
  const auto it = lowerBound(key);
  if (it != entries_.end() && it->first == key) {
    it->second = std::move(value);
  } else {
    entries_.emplace(it, std::string(key), std::move(value));
  }
}

void Dictionary::remove(std::string_view key) {
  const auto it = lowerBound(key);
  if (it != entries_.end() && it->first == key) entries_.erase(it);
}

void Dictionary::merge(const Dictionary& other) {
  std::vector<Entry> merged;
  merged.reserve(entries_.size() + other.entries_.size());
  auto mine = entries_.begin();
  for (const Entry& entry : other.entries_) {
    while (mine != entries_.end() && mine->first < entry.first) merged.push_back(std::move(*mine++));
    if (mine != entries_.end() && mine->first == entry.first) ++mine;
    merged.push_back(entry);
  }
  std::move(mine, entries_.end(), std::back_inserter(merged));
  entries_ = std::move(merged);
}

bool operator==(const Dictionary& a, const Dictionary& b) {
  return a.entries_ == b.entries_;
}

}  // namespace kmv
