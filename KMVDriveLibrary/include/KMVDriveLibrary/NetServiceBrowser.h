// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Export.h>

#include <string>
#include <string_view>

namespace kmv {

class NetServiceBrowser;

/// Hears what a browser finds. Called on whatever thread the platform browses on.
class KMV_EXPORT NetServiceBrowserDelegate {
 public:
  virtual ~NetServiceBrowserDelegate();
  /// Selector: netServiceBrowser:didFindDomain:moreComing:
  virtual void netServiceBrowserDidFindDomain(NetServiceBrowser* browser, const std::string& domain,
                                              bool moreComing) = 0;
  /// Selector: netServiceBrowser:didFindService:moreComing:
  virtual void netServiceBrowserDidFindService(NetServiceBrowser* browser, const std::string& service,
                                               bool moreComing) = 0;
};

/// Browses the network for services, where the platform can; elsewhere it finds nothing, silently.
class KMV_EXPORT NetServiceBrowser {
 public:
  virtual ~NetServiceBrowser();
  virtual void setIncludesPeerToPeer(bool includes) = 0;
  /// Not owned; must outlive the browser.
  virtual void setDelegate(NetServiceBrowserDelegate* delegate) = 0;
  /// Begins to look for services of a type ("_http._tcp.") in a domain; the empty one stands for the default
  /// ones.
  virtual void searchForServicesOfType(std::string_view type, std::string_view inDomain) = 0;
};

}  // namespace kmv
