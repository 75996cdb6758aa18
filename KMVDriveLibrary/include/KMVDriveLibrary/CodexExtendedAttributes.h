// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Export.h>
#include <KMVDriveLibrary/URL.h>

#include <cstdint>
#include <map>
#include <optional>

/// The extended attributes that a Codex volume gives its files.
/// The misspelling of the second name is intended.
enum class CodexExtendedAttributes {
  decodedSize,       ///< "codex.decodedSize"
  extimatedHDESize,  ///< "codex.estimatedHDESize"
};

namespace kmv {

/// The attribute's name on the volume.
/// Lifetime: the process.
KMV_EXPORT const char* codexAttributeName(CodexExtendedAttributes attribute);

// Extensions of URL.
// They call CrossAppFileManager::getExtendedAttributeAsInt on the calling thread and block on the volume.

/// The size in bytes in "codex.estimatedHDESize"; none when it cannot be read.
/// Selector: codexEstimatedHDESize
KMV_EXPORT std::optional<std::int64_t> codexEstimatedHDESize(const URL& url);
/// The size in bytes in "codex.decodedSize"; none when it cannot be read.
/// Selector: codexDecodedSize
KMV_EXPORT std::optional<std::int64_t> codexDecodedSize(const URL& url);

/// Both attributes of an "ari" file, as far as they can be read; the second only when it can.
/// Failure: throws ExtendedAttributesError when the path extension is not exactly "ari" (case-sensitive).
/// Selector: codexExtendedAttributes
KMV_EXPORT std::map<CodexExtendedAttributes, std::int64_t> codexExtendedAttributes(const URL& url);

}  // namespace kmv
