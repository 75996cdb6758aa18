// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Export.h>
#include <KMVDriveLibrary/URL.h>

#include <cstdint>
#include <map>
#include <optional>

/// The extended attributes that a Codex volume gives its files. The misspelling in the name of the second is
/// part of it.
enum class CodexExtendedAttributes {
  decodedSize,       ///< "codex.decodedSize"
  extimatedHDESize,  ///< "codex.estimatedHDESize"
};

namespace kmv {

/// The attribute's name on the volume. Lives as long as the process.
KMV_EXPORT const char* codexAttributeName(CodexExtendedAttributes attribute);

// Extensions of URL. They ask CrossAppFileManager::getExtendedAttributeAsInt, on the calling thread, and wait
// for the volume.

/// The number of bytes in "codex.estimatedHDESize"; none when it cannot be read. (codexEstimatedHDESize)
KMV_EXPORT std::optional<std::int64_t> codexEstimatedHDESize(const URL& url);
/// The same of "codex.decodedSize". (codexDecodedSize)
KMV_EXPORT std::optional<std::int64_t> codexDecodedSize(const URL& url);

/// Both attributes of an "ari" file, as far as they can be read; the second only when it can. Failure: throws
/// ExtendedAttributesError when the path extension is not "ari", letter by letter.
KMV_EXPORT std::map<CodexExtendedAttributes, std::int64_t> codexExtendedAttributes(const URL& url);

}  // namespace kmv
