// SPDX-License-Identifier: MIT
#pragma once

#include <string_view>

namespace kmv::fuzz {

// What the fuzzers run on each input, and the tests on each file of the corpora. They abort the process when
// an invariant does not hold.

/// Two mount tables, separated by a NUL byte: the incremental update from one to the other must end in the
/// state of a fresh start with the other.
void mountInfo(std::string_view input);

/// A message about a device, a record of udev's database, or an encoded name.
void deviceMessage(std::string_view input);

/// /proc/diskstats, or a device's stat file: never more records than lines.
void diskStatistics(std::string_view input);

/// The state document of a Codex volume: what a strict JSON reader accepts is accepted, and reading is
/// idempotent.
void codexDocument(std::string_view input);

/// What the attribute tool prints, and the number in an attribute.
void toolOutput(std::string_view input);

/// What /proc tells about a process: its mappings, a descriptor's mount, a thread's state.
void processFiles(std::string_view input);

/// A byte count in eight bytes: its text is the count, rounded.
void byteCount(std::string_view input);

}  // namespace kmv::fuzz
