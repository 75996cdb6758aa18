// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include "platform/Platform.h"

namespace kmv {

/// The backend of this build.
/// Defined in the backend's folder, in a file of its own, so that a test can link the sources of another
/// backend too.
std::unique_ptr<Platform> makeNativePlatform();

}  // namespace kmv
