// SPDX-License-Identifier: MIT
// Property lists of the platform as the library's values, and back.
#include "platform/macos/Values.h"

#include "platform/macos/MacTest.h"
#include "support/Testing.h"

namespace kmv::macos {
namespace {

using fake::Plain;
using MacValues = MacTest;

CF<CFTypeRef> made(const Plain& plain) {
  return CF<CFTypeRef>::adopt(fake::make(plain));
}
std::optional<Value> read(const Plain& plain) {
  return valueOf(made(plain).get());
}
CF<CFTypeRef> url(std::string_view text) {
  const auto created = CF<CFURLRef>::adopt(
      CFURLCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(text.data()),
                           static_cast<CFIndex>(text.size()), kCFStringEncodingUTF8, nullptr));
  return CF<CFTypeRef>::share(created.get());
}
std::shared_ptr<fake::List> list(std::vector<Plain> items) {
  return std::make_shared<fake::List>(fake::List{std::move(items)});
}
std::shared_ptr<fake::Map> map(fake::Entries entries) {
  return std::make_shared<fake::Map>(fake::Map{std::move(entries)});
}

TEST_F(MacValues, EveryKindComesInAsItselfAndGoesBackAsTheSame) {
  const std::string uuid = "0A1B2C3D-4E5F-6071-8293-A4B5C6D7E8F9";
  const struct {
    Plain plain;
    Value value;
  } kinds[] = {
      {true, true},
      {false, false},
      {std::int64_t{1}, 1},
      {std::int64_t{-119930878}, -119930878},
      {1.0, 1.0},
      {0.25, 0.25},
      {std::string(), ""},
      {std::string("Gr\xC3\xB6\xC3\x9F\x65 \xF0\x9F\x92\xBE"), "Gr\xC3\xB6\xC3\x9F\x65 \xF0\x9F\x92\xBE"},
      {std::string("a\0b", 3), std::string("a\0b", 3)},
      {fake::UUIDText{uuid}, *UUID::fromString(uuid)},
      {fake::Bytes{std::string("\0\xFF", 2)}, Data{std::byte{0}, std::byte{0xFF}}},
      {fake::Time{-0.5}, Date{-0.5}},
      {fake::FileURL{"/Volumes/A b\xCC\x88"}, URL::fileURLWithPath("/Volumes/A b\xCC\x88", true)},
      {fake::FileURL{"/a/\xFF", false}, URL::fileURLWithPath("/a/\xFF", false)},
      {list({std::int64_t{2}, list({}), true}), Array{2, Array{}, true}},
      {map({{"b", map({{"x", 1.5}})}, {"a", std::string("t")}}),
       Dictionary{{"a", "t"}, {"b", Dictionary{{"x", 1.5}}}}},
  };
  for (const auto& [plain, value] : kinds) {
    const auto there = read(plain);
    ASSERT_TRUE(there) << value.description();
    EXPECT_EQ(there->kind(), value.kind()) << value.description();  // true and 1 are equal otherwise
    EXPECT_EQ(*there, value);
    EXPECT_TRUE(CFEqual(createCF(value).get(), made(plain).get())) << value.description();
  }
}

TEST_F(MacValues, FileURLsAreWrittenByOneHandHoweverThePlatformEscapesThem) {
  const auto folder = URL::fileURLWithPath("/Volumes/A;~\xC3\xBC", true);
  for (const char* text : {"file:///Volumes/A;~%C3%BC/", "file:///Volumes/A%3B%7E%c3%bc/",
                           "file://localhost/Volumes/A;~%C3%BC/"})
    EXPECT_EQ(valueOf(url(text).get()), Value(folder)) << text;
  EXPECT_EQ(valueOf(url("file:///Volumes/A;~%C3%BC").get()),
            Value(URL::fileURLWithPath("/Volumes/A;~\xC3\xBC", false)));
  for (const char* text : {"smb://host/share%7E", "relative/path%7E"}) {
    EXPECT_EQ(valueOf(url(text).get()), Value(*URL::fromString(text)));
    EXPECT_TRUE(CFEqual(createCF(*URL::fromString(text)).get(), url(text).get()));
  }
}

TEST_F(MacValues, WhatHasNoCounterpartIsLeftOut) {
  class HostsOwn : public Object {};
  EXPECT_EQ(valueOf(nullptr), std::nullopt);
  EXPECT_EQ(read(fake::Null{}), std::nullopt);
  EXPECT_EQ(read(list({fake::Null{}, std::int64_t{1}})), Value(Array{1}));
  EXPECT_EQ(read(map({{"gone", fake::Null{}}, {"kept", true}})), Value(Dictionary{{"kept", true}}));
  EXPECT_EQ(textOf(nullptr), "");
  EXPECT_TRUE(dictionaryOf(nullptr).empty());
  const Value bad("\xFF");
  EXPECT_FALSE(createCF(bad));
  EXPECT_FALSE(createCF(std::make_shared<HostsOwn>()));
  EXPECT_TRUE(CFEqual(createCF(Array{bad, 1}).get(), made(list({std::int64_t{1}})).get()));
  EXPECT_TRUE(CFEqual(createCF(Dictionary{{"\xFF", 1}, {"b", bad}, {"c", 1}}).get(),
                      made(map({{"c", std::int64_t{1}}})).get()));

  const auto dictionary = CF<CFMutableDictionaryRef>::adopt(CFDictionaryCreateMutable(
      kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
  CFDictionarySetValue(dictionary.get(), made(std::int64_t{1}).get(), kCFBooleanTrue);
  EXPECT_TRUE(dictionaryOf(dictionary.get()).empty()) << "its only key is no text";
}

TEST_F(MacValues, AnObjectOfAnUnknownTypeIsKeptAndGoesBackAsItself) {
  CFTypeRef nothing = nullptr;
  CFErrorRef error = nullptr;
  ASSERT_FALSE(CFURLCopyResourcePropertyForKey(static_cast<CFURLRef>(url("file:///no/such/item").get()),
                                               kCFURLVolumeURLKey, &nothing, &error));
  auto value = valueOf(error);
  CFRelease(error);  // the value has a reference of its own
  ASSERT_EQ(value->kind(), Value::Kind::object);
  EXPECT_EQ(createCF(*value).get(), static_cast<CFTypeRef>(error));
  value.reset();
  EXPECT_EQ(fake::liveObjects(), 0);
}

}  // namespace
}  // namespace kmv::macos
