// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/CodexExtendedAttributes.h>
#include <KMVDriveLibrary/host/CrossAppKit.h>

#include <string>

namespace kmv {
namespace {

std::optional<std::int64_t> numberOf(const URL& url, CodexExtendedAttributes attribute) {
  try {
    return CrossAppFileManager::defaultManager().getExtendedAttributeAsInt(url,
                                                                           codexAttributeName(attribute));
  } catch (...) {  // a host's helper may throw anything
    return std::nullopt;
  }
}

std::string pathExtension(const URL& url) {
  const std::string name = url.lastPathComponent();
  const std::size_t dot = name.rfind('.');
  return dot == std::string::npos || dot == 0 ? std::string() : name.substr(dot + 1);
}

}  // namespace

const char* codexAttributeName(CodexExtendedAttributes attribute) {
  return attribute == CodexExtendedAttributes::decodedSize ? "codex.decodedSize" : "codex.estimatedHDESize";
}

std::optional<std::int64_t> codexEstimatedHDESize(const URL& url) {
  return numberOf(url, CodexExtendedAttributes::extimatedHDESize);
}

std::optional<std::int64_t> codexDecodedSize(const URL& url) {
  return numberOf(url, CodexExtendedAttributes::decodedSize);
}

std::map<CodexExtendedAttributes, std::int64_t> codexExtendedAttributes(const URL& url) {
  if (pathExtension(url) != "ari") throw ExtendedAttributesError("only \"ari\" files have these attributes");
  std::map<CodexExtendedAttributes, std::int64_t> found;
  if (const auto decoded = codexDecodedSize(url)) found[CodexExtendedAttributes::decodedSize] = *decoded;
  if (const auto estimated = codexEstimatedHDESize(url))
    found[CodexExtendedAttributes::extimatedHDESize] = *estimated;
  return found;
}

}  // namespace kmv
