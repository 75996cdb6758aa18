// SPDX-License-Identifier: MIT
#include <cstdlib>
#include <nlohmann/json.hpp>

#include "codexvfs/CodexVFSState.h"
#include "codexvfs/JSONDocument.h"
#include "targets.h"

namespace kmv::fuzz {
namespace {

/// Short enough to be nested as deep as it is long, and not to be taken for another encoding.
bool isComparable(std::string_view input) {
  return input.size() <= 512 && input.find('\0') == std::string_view::npos &&
         !input.starts_with("\xff\xfe") && !input.starts_with("\xfe\xff");
}

}  // namespace

void codexDocument(std::string_view input) {
  const auto value = valueOfJSON(input);
  if (value && value->asArray() == nullptr && value->asDictionary() == nullptr) std::abort();
  if (isComparable(input)) {
    const auto strict = nlohmann::json::parse(input, nullptr, /*allow_exceptions=*/false);
    if (!strict.is_discarded() && strict.is_structured() && !value) std::abort();
  }
  static const CodexVFSState nothingKnown(URL::fileURLWithPath("/.codexvfs", /*isDirectory=*/false));
  CodexVFSState state = nothingKnown;
  state.updateFlags(FileBytes{std::string(input), {}});
  const auto status = state.status();
  const std::string label = state.volumeLabel();
  state.updateFlags(FileBytes{std::string(input), {}});
  if (state.status() != status || state.volumeLabel() != label) std::abort();
}

}  // namespace kmv::fuzz
