// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "platform/TreeWalk.h"

namespace kmv::macos {

/// See posix/FileWalk.h. Helpers are tasks of the platform's utility queue.
class MacTreeWalk final : public TreeWalk {
 private:
  void visitEachFile(const std::string& folder, const std::string& attribute,
                     const VisitFile& visit) override;
};

}  // namespace kmv::macos
