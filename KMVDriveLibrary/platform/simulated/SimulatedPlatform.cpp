// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/testing/SimulatedPlatform.h>

#include <memory>
#include <utility>

#include "base/Fatal.h"
#include "platform/LibraryCopies.h"
#include "platform/simulated/Machine.h"

namespace kmv::simulation {

SimulatedPlatform& SimulatedPlatform::install(std::uint64_t seed) {
  if (libraryCopies > 1)
    fatal(
        "the simulated machine works with the shared library only, and this process has another copy of the "
        "library, "
        "from KMVDriveLibrary::Static");
  auto machine = std::make_unique<simulated::Machine>(seed);
  SimulatedPlatform& installed = *machine;
  if (!Platform::install(std::move(machine)))
    fatal("the simulated machine must be installed once, before the library's first use");
  return installed;
}

}  // namespace kmv::simulation
