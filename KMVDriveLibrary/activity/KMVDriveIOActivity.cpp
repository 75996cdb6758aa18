// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/KMVDriveIOActivity.h>

#include <utility>

KMVDriveIOActivity::KMVDriveIOActivity(Delta readDelta, Delta writeDelta)
    : readDelta_(std::move(readDelta)), writeDelta_(std::move(writeDelta)) {}
KMVDriveIOActivity::~KMVDriveIOActivity() = default;
