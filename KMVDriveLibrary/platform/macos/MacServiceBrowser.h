// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/NetServiceBrowser.h>
#include <KMVDriveLibrary/Queue.h>

#include <memory>
#include <string_view>

namespace kmv::macos {

/// Delegates are called on a queue of the browser's own. What goes is not reported, and neither are errors:
/// they are as if nothing was there. Recent systems ask the user whether the host may look at the network.
class MacServiceBrowser final : public NetServiceBrowser {
 public:
  MacServiceBrowser();
  ~MacServiceBrowser() override;
  MacServiceBrowser(const MacServiceBrowser&) = delete;
  MacServiceBrowser& operator=(const MacServiceBrowser&) = delete;

  /// Counts for the next search.
  void setIncludesPeerToPeer(bool includes) override { includesPeerToPeer_ = includes; }
  void setDelegate(NetServiceBrowserDelegate* delegate) override;
  /// Ends the search before.
  void searchForServicesOfType(std::string_view type, std::string_view inDomain) override;

 private:
  struct Search;
  struct Listener;

  void endSearch();

  const std::shared_ptr<SerialQueue> queue_;
  const std::shared_ptr<Listener> listener_;
  std::shared_ptr<Search> search_;
  bool includesPeerToPeer_ = false;
};

}  // namespace kmv::macos
