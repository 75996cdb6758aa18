// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/host/OrvaneApp.h>

constinit const std::string_view virtualFileSystemWrapperHasUpdated = "virtualFileSystemWrapperHasUpdated";

VirtualFileSystemWrapper::~VirtualFileSystemWrapper() = default;
