// SPDX-License-Identifier: MIT
#include <dlfcn.h>

#include "support/Testing.h"

namespace kmv::test {
namespace {

TEST(Unloading, TheLibraryStaysForItsThreadsWhenAHostClosesIt) {
  void* const library = dlopen(KMV_LIBRARY_FILE, RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(library, nullptr) << dlerror();
  dlclose(library);
  EXPECT_NE(dlopen(KMV_LIBRARY_FILE, RTLD_NOW | RTLD_NOLOAD), nullptr);
}

}  // namespace
}  // namespace kmv::test
