// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>

namespace kmv {

/// Path bytes as URL text: letters, digits and "-._~!$&'()*+,=:@/" stay, every other byte becomes "%XX",
/// upper case.
std::string percentEncodedPath(std::string_view path);

/// True for the canonical text of an absolute path: no empty, "." or ".." component, and only those bytes
/// escaped that must be.
bool isCanonicalFilePath(std::string_view encodedPath);

/// URL text as path bytes.
/// A "%" without two hexadecimal digits after it stays as it is.
std::string percentDecoded(std::string_view text);

}  // namespace kmv
