// SPDX-License-Identifier: MIT
#pragma once

namespace kmv {

/// The session's word that the registry has heard of every disk that was there at its start.
/// Thread: the arbiter queue, behind their registrations.
void presentDisksTold(void* context);

}  // namespace kmv
