// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/NetServiceBrowser.h>

#include <string>
#include <string_view>
#include <vector>

namespace kmv::simulated {

/// Finds nothing; records its searches.
class SimulatedServiceBrowser final : public NetServiceBrowser {
 public:
  explicit SimulatedServiceBrowser(std::vector<std::string>& searches) : searches_(searches) {}

  void setIncludesPeerToPeer(bool includes) override { peerToPeer_ = includes; }
  void setDelegate(NetServiceBrowserDelegate*) override {}
  void searchForServicesOfType(std::string_view type, std::string_view inDomain) override {
    searches_.push_back(std::string(type) + " in \"" + std::string(inDomain) + "\"" +
                        (peerToPeer_ ? " and among peers" : ""));
  }

 private:
  std::vector<std::string>& searches_;
  bool peerToPeer_ = false;
};

}  // namespace kmv::simulated
