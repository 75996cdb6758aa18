// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "platform/TreeWalk.h"

namespace kmv {

/// See posix/FileWalk.h. Helpers are workers of the pool.
class LinuxTreeWalk final : public TreeWalk {
 private:
  void visitEachFile(const std::string& folder, const std::string& attribute,
                     const VisitFile& visit) override;
};

}  // namespace kmv
