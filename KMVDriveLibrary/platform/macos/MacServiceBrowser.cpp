// SPDX-License-Identifier: MIT
#include "platform/macos/MacServiceBrowser.h"

#include <dns_sd.h>

#include <string>
#include <utility>

#include "platform/macos/Queues.h"

namespace kmv::macos {

/// Who hears of services. Used on the browser's queue only.
struct MacServiceBrowser::Listener {
  MacServiceBrowser* browser;
  NetServiceBrowserDelegate* delegate = nullptr;
};

/// One search of the platform's, and the context of its answers. It outlives the browser until the platform
/// has taken it back, which must happen on the queue.
struct MacServiceBrowser::Search {
  std::shared_ptr<Listener> listener;
  DNSServiceRef reference = nullptr;

  static void answered(DNSServiceRef, DNSServiceFlags flags, std::uint32_t, DNSServiceErrorType error,
                       const char* name, const char*, const char*, void* context) noexcept {
    const Listener& listener = *static_cast<Search*>(context)->listener;
    if (error != kDNSServiceErr_NoError || (flags & kDNSServiceFlagsAdd) == 0 || listener.delegate == nullptr)
      return;
    listener.delegate->netServiceBrowserDidFindService(listener.browser, name,
                                                       (flags & kDNSServiceFlagsMoreComing) != 0);
  }
};

MacServiceBrowser::MacServiceBrowser()
    : queue_(MacQueueFactory::makeQueue("service browser", QualityOfService::utility)),
      listener_(std::make_shared<Listener>(Listener{this})) {}

MacServiceBrowser::~MacServiceBrowser() {
  setDelegate(nullptr);
  endSearch();
}

void MacServiceBrowser::setDelegate(NetServiceBrowserDelegate* delegate) {
  if (queue_->isCurrent()) {
    listener_->delegate = delegate;
  } else {
    queue_->sync([this, delegate] { listener_->delegate = delegate; });
  }
}

void MacServiceBrowser::searchForServicesOfType(std::string_view type, std::string_view inDomain) {
  endSearch();
  const DNSServiceFlags flags =
      includesPeerToPeer_ ? kDNSServiceFlagsIncludeP2P | kDNSServiceFlagsIncludeAWDL : DNSServiceFlags{0};
  const std::string typeText(type), domain(inDomain);
  auto search = std::make_shared<Search>(Search{listener_});
  if (DNSServiceBrowse(&search->reference, flags, kDNSServiceInterfaceIndexAny, typeText.c_str(),
                       domain.empty() ? nullptr : domain.c_str(), &Search::answered,
                       search.get()) != kDNSServiceErr_NoError)
    return;
  search_ = std::move(search);
  DNSServiceSetDispatchQueue(search_->reference, dispatchQueueOf(*queue_));
}

/// Asynchronously, so that a delegate may do it too.
void MacServiceBrowser::endSearch() {
  if (auto search = std::exchange(search_, nullptr))
    queue_->async([search = std::move(search)] { DNSServiceRefDeallocate(search->reference); });
}

}  // namespace kmv::macos
