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
int compare(std::int64_t integer, double real) {
  constexpr double kBeyond = 9223372036854775808.0;  // 2^63
  if (real >= kBeyond) return -1;
  if (real < -kBeyond) return 1;
  const double whole = std::trunc(real);
  const auto other = static_cast<std::int64_t>(whole);
  if (integer != other) return integer < other ? -1 : 1;
  return whole < real ? -1 : whole > real ? 1 : 0;
}

}  // namespace

bool NumberOrder::operator()(const Value& a, const Value& b) const {
  if (isInteger(a) && isInteger(b)) return a.integerValue() < b.integerValue();
  const double left = realOf(a), right = realOf(b);
  if (std::isnan(left) || std::isnan(right)) return !std::isnan(left);
  if (isInteger(a)) return compare(a.integerValue(), right) < 0;
  if (isInteger(b)) return compare(b.integerValue(), left) > 0;
  return left < right;
}

}  // namespace kmv
