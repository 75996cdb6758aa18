// SPDX-License-Identifier: MIT
#pragma once

/// Marks what the shared library exports; every other symbol is hidden.
#if defined(__GNUC__) || defined(__clang__)
#  define KMV_EXPORT __attribute__((visibility("default")))
#else
#  define KMV_EXPORT
#endif
