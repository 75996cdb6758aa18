// SPDX-License-Identifier: MIT
// Mount points may hold any byte but NUL.
#include <KMVDriveLibrary/KMVDriveLibrary.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "integration/support/Observer.h"
#include "integration/support/Story.h"

namespace kmv::integration {
namespace {

using nlohmann::json;

TEST_F(VolumeStory, AMountPointOfAnyBytesIsNamedExactly) {
  const std::vector<std::string> names{"a blank",      "new\nline\ttab",       "quote\" and '",
                                       "back\\slash",  "literal \\040 x",      "byte\xff\xfe",
                                       "per%41cent#?", "\xc3\xa4 \xe2\x82\xac"};
  const std::string image = makeImage(space().path("any.img"), "ext4", "Any");
  std::vector<LoopDevice> devices;
  Observer observer(space().scratch());
  for (const std::string& name : names) {
    devices.emplace_back(copyImage(image, space().path(std::to_string(devices.size()) + ".img")));
    mountVolume(devices.back().node(), space().folder(name), "ext4");
    observer.expect({"added " + name});
    ASSERT_NE(observer.drive(name), nullptr);
    EXPECT_EQ(observer.drive(name)->url(kDiskURLKey)->path(), space().path(name));
  }

  const Ran list = run({KMVDRIVE_PROGRAM, "list", "--json"});
  ASSERT_EQ(list.exitCode, 0);
  std::map<std::string, std::string> urls;  // by device
  const json document = json::parse(list.output);
  for (const json& drive : document.at("drives")) urls[drive.value("bsdName", "")] = drive.at("url");
  for (std::size_t i = 0; i < names.size(); ++i) {
    const auto url = URL::fromString(urls[devices[i].name()]);
    ASSERT_TRUE(url) << names[i];
    EXPECT_EQ(url->path(), space().path(names[i]));
    EXPECT_EQ(url, *observer.drive(names[i])->url(kDiskURLKey));
  }

  for (const std::string& name : names) {
    unmount(space().path(name));
    observer.expect({"removed " + name});
  }
}

}  // namespace
}  // namespace kmv::integration
