// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>

namespace kmv {

/// Path bytes as URL text: letters, digits and "-._~!$&'()*+,=:@/" stay, every other byte becomes "%XX",
/// upper case.
std::string percentEncodedPath(std::string_view path);

/// True for the text of an absolute path that says nothing twice: no empty, "." or ".." component, and
/// nothing escaped that need not be.
bool isCanonicalFilePath(std::string_view encodedPath);

/// URL text as path bytes. A "%" that no two hexadecimal digits follow stays as it is.
std::string percentDecoded(std::string_view text);

}  // namespace kmv
