// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/DescriptionKeys.h>
#include <KMVDriveLibrary/testing/SimulatedFaults.h>

namespace kmv::simulation {

Dictionary SimulatedFaults::dissenter(std::optional<std::int64_t> status,
                                      std::optional<std::int64_t> processID) {
  Dictionary record;
  if (status) record.set(key::kDissenterStatus, *status);
  if (processID) record.set(key::kDissenterProcessID, *processID);
  return record;
}

}  // namespace kmv::simulation
