// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/NumberOrder.h>

#include <cmath>
#include <cstdint>
#include <limits>

namespace kmv {
namespace {

double realOf(const Value& value) {
  return value.isNumber() ? value.doubleValue() : std::numeric_limits<double>::quiet_NaN();
}

bool isInteger(const Value& value) {
  return value.kind() == Value::Kind::boolean || value.kind() == Value::Kind::integer;
}

/// An integer against a real, exactly: -1, 0 or 1. REQUIRES: `real` is a number.
int compare(const Value& value, double real) {
  constexpr double kBeyondSigned = 9223372036854775808.0, kBeyond = 2 * kBeyondSigned;  // 2^63, 2^64
  if (real >= kBeyond) return -1;
  if (real < -kBeyondSigned) return 1;
  const std::int64_t integer = value.integerValue();
  if (real >= kBeyondSigned) {
    const auto large = static_cast<std::uint64_t>(real);
    if (integer < 0 || value.unsignedValue() < large) return -1;
    return value.unsignedValue() > large ? 1 : 0;
  }
  const double whole = std::trunc(real);
  const auto other = static_cast<std::int64_t>(whole);
  if (integer != other) return integer < other ? -1 : 1;
  return whole < real ? -1 : whole > real ? 1 : 0;
}

}  // namespace

bool NumberOrder::operator()(const Value& a, const Value& b) const {
  // Those above the signed range have its end in common, and their unsigned values apart.
  if (isInteger(a) && isInteger(b)) {
    const std::int64_t left = a.integerValue(), right = b.integerValue();
    return left != right ? left < right : a.unsignedValue() < b.unsignedValue();
  }
  const double left = realOf(a), right = realOf(b);
  if (std::isnan(left) || std::isnan(right)) return !std::isnan(left);
  if (isInteger(a)) return compare(a, right) < 0;
  if (isInteger(b)) return compare(b, left) > 0;
  return left < right;
}

}  // namespace kmv
