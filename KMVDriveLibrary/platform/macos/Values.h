// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Value.h>

#include <optional>
#include <string>
#include <string_view>

#include "platform/macos/CF.h"

// CoreFoundation's property lists as the library's values, and back. No other file knows its types.

namespace kmv::macos {

/// None for null, for CFNull and for a URL without text. A type that values do not have (a bundle, an error)
/// becomes an `Object` that retains it.
std::optional<Value> valueOf(CFTypeRef object);

/// Entries without a text as key, and those whose value has no counterpart, are left out. Empty for null.
Dictionary dictionaryOf(CFDictionaryRef dictionary);

/// As UTF-8; '?' for half a surrogate pair. Embedded NULs survive. Empty for null.
std::string textOf(CFStringRef string);

/// File URLs are written anew from their decoded path: the platform's releases and calls escape differently,
/// and the library compares URLs byte for byte. None for a URL without text.
std::optional<URL> urlOf(CFURLRef url);

/// Null for what the platform cannot hold: text or a key that is no UTF-8, an object of the host's own.
CF<CFTypeRef> createCF(const Value& value);
CF<CFStringRef> createString(std::string_view utf8);
CF<CFURLRef> createURL(const URL& url);

}  // namespace kmv::macos
