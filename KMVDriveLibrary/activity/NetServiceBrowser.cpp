// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/NetServiceBrowser.h>

namespace kmv {

NetServiceBrowser::~NetServiceBrowser() = default;
NetServiceBrowserDelegate::~NetServiceBrowserDelegate() = default;

}  // namespace kmv
