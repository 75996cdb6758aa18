// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Export.h>

#include <string>
#include <string_view>

namespace kmv {

class NetServiceBrowser;

/// Receives what a browser finds.
/// Thread: the one on which the platform browses.
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
  /// Whether peer-to-peer links are searched too.
  virtual void setIncludesPeerToPeer(bool includes) = 0;
  /// Who hears what is found; null for nobody.
  /// Returns after the last call of the previous delegate, which may then go away.
  /// Not owned; must outlive the browser or be replaced.
  virtual void setDelegate(NetServiceBrowserDelegate* delegate) = 0;
  /// Begins to look for services of a type ("_http._tcp.") in a domain; an empty domain stands for the
  /// defaults.
  virtual void searchForServicesOfType(std::string_view type, std::string_view inDomain) = 0;
};

}  // namespace kmv
