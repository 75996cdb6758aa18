// SPDX-License-Identifier: MIT
// What the doubles themselves promise: order, threads, snapshots, who owns what, and that misuse stops.
#include "platform/macos/MacTest.h"
#include "platform/macos/double/FakePlatform.h"
#include "platform/macos/double/Object.h"
#include "support/Testing.h"

namespace kmv::fake {
namespace {

using ::testing::ElementsAre;
using MacDouble = macos::MacTest;

TEST_F(MacDouble, MisuseStops) {
  EXPECT_DEATH(CFRelease(nullptr), "a null reference");
  EXPECT_DEATH(
      {
        const Held first = Held::adopt(newString("x"));
        CFRelease(first.get());  // and once more at the end
      },
      "used after its last release");
  const Held text = Held::adopt(newString("1"));
  EXPECT_DEATH(CFNumberIsFloatType(static_cast<CFNumberRef>(text.get())), "of the wrong type");
  EXPECT_DEATH(IOObjectRelease(7), "a handle released that is not held");
  EXPECT_DEATH(dispatch_sync_f(dispatch_get_main_queue(), nullptr, [](void*) {}), "owned by current thread");
  EXPECT_DEATH(dispatch_after_f(dispatch_time(DISPATCH_TIME_NOW, INT64_MAX), dispatch_get_main_queue(),
                                nullptr, nullptr),
               "drops it silently");
}

TEST_F(MacDouble, QueuesKeepOrderAndThreads) {
  static std::string order;
  static pthread_t caller, inSync;
  const dispatch_queue_t queue = dispatch_queue_create("line", DISPATCH_QUEUE_SERIAL);
  static const dispatch_queue_t shared = queue;
  caller = ::pthread_self();
  dispatch_after_f(dispatch_time(DISPATCH_TIME_NOW, 3'000'000'000), queue, nullptr,
                   [](void*) { order += 'd'; });
  dispatch_async_f(queue, nullptr, [](void*) {
    order += 'a';
    dispatch_async_f(shared, nullptr, [](void*) { order += 'c'; });
  });
  dispatch_sync_f(queue, nullptr, [](void*) {
    inSync = ::pthread_self();
    EXPECT_TRUE(owns(shared));
  });
  EXPECT_TRUE(::pthread_equal(caller, inSync) != 0);
  advance(std::chrono::seconds(2));
  EXPECT_TRUE(order == "ac");
  advance(std::chrono::seconds(1));
  EXPECT_TRUE(order == "acd");
  EXPECT_TRUE(!owns(queue));
  dispatch_release(queue);
}

struct Heard {
  std::vector<std::string> lines;
};
std::string pathIn(DADiskRef disk) {
  const Held description = Held::adopt(DADiskCopyDescription(disk));
  const Held key = Held::adopt(newString("DAVolumePath"));
  const void* const url =
      description ? CFDictionaryGetValue(static_cast<CFDictionaryRef>(description.get()), key.get())
                  : nullptr;
  return url == nullptr ? "-" : textOf(CFURLGetString(static_cast<CFURLRef>(url)));
}
void hear(void* context, const std::string& line) {
  static_cast<Heard*>(context)->lines.push_back(line);
}

TEST_F(MacDouble, SessionsHearWhatWas) {
  Heard heard;
  const dispatch_queue_t queue = dispatch_queue_create("events", DISPATCH_QUEUE_SERIAL);
  const DASessionRef session = DASessionCreate(kCFAllocatorDefault);
  attach({"disk2s1", "/Volumes/A"});
  attach({"disk3"});
  DASessionSetDispatchQueue(session, queue);
  afterNextRegistration([] { attach({"disk9"}); });
  DARegisterDiskDescriptionChangedCallback(
      session, nullptr, nullptr,
      [](DADiskRef disk, CFArrayRef keys, void* c) {
        hear(c, "changed " + pathIn(disk) + " " + std::to_string(CFArrayGetCount(keys)));
      },
      &heard);
  DARegisterDiskDisappearedCallback(
      session, nullptr, [](DADiskRef disk, void* c) { hear(c, "gone " + pathIn(disk)); }, &heard);
  DARegisterDiskAppearedCallback(
      session, nullptr, [](DADiskRef disk, void* c) { hear(c, "new " + pathIn(disk)); }, &heard);
  renameVolume("disk2s1", "B");
  detach("disk2s1");
  runUntilIdle();
  // The newest disk first, the one that came between two registrations too; the path that was, whatever is
  // now.
  EXPECT_THAT(heard.lines, ElementsAre("new -", "new -", "new file:///Volumes/A/",
                                       "changed file:///Volumes/B/ 2", "gone file:///Volumes/B/"));
  attach({"disk4s1", "/Volumes/C"});
  runUntilIdle();
  heard.lines.clear();

  const Held url = Held::adopt(make(FileURL{"/Volumes/C"}));
  const Held disk =
      Held::adopt(DADiskCreateFromVolumePath(kCFAllocatorDefault, session, static_cast<CFURLRef>(url.get())));
  auto* const asked = static_cast<DADiskRef>(const_cast<void*>(disk.get()));
  const auto end = [](DADiskRef d, DADissenterRef dissenter, void* c) {
    hear(c, (dissenter == nullptr ? "done " : "refused ") + pathIn(d));
  };
  refuseNext(Refusal::onTheSpot, -119930871);
  DADiskUnmount(asked, kDADiskUnmountOptionDefault, end, &heard);
  EXPECT_EQ(heard.lines.back(),
            "refused file:///Volumes/C/");  // before the call returned, and before the event
  DADiskUnmount(asked, kDADiskUnmountOptionDefault, end, &heard);
  runUntilIdle();
  EXPECT_THAT(heard.lines, ElementsAre("refused file:///Volumes/C/", "changed - 1", "done -"));
  DASessionSetDispatchQueue(session, nullptr);
  attach({"disk5"});
  runUntilIdle();
  EXPECT_TRUE(heard.lines.size() == 3);
  CFRelease(session);
  dispatch_release(queue);
}

}  // namespace
}  // namespace kmv::fake
