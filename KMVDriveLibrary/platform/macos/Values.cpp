// SPDX-License-Identifier: MIT
#include "platform/macos/Values.h"

#include <bit>
#include <cstdint>
#include <memory>
#include <utility>

namespace kmv::macos {
namespace {

/// An object of a type that values do not have. It goes back as itself.
class ForeignObject final : public Object {
 public:
  explicit ForeignObject(CFTypeRef object) : object_(CF<CFTypeRef>::share(object)) {}
  const CF<CFTypeRef>& get() const { return object_; }

 private:
  CF<CFTypeRef> object_;
};

Value numberOf(CFNumberRef number) {
  if (CFNumberIsFloatType(number)) {
    double real = 0;
    CFNumberGetValue(number, kCFNumberFloat64Type, &real);
    return real;
  }
  std::int64_t integer = 0;
  CFNumberGetValue(number, kCFNumberSInt64Type, &integer);
  return integer;
}

Data dataOf(CFDataRef data) {
  const auto* const bytes = reinterpret_cast<const std::byte*>(CFDataGetBytePtr(data));
  return {bytes, bytes + CFDataGetLength(data)};
}

Array arrayOf(CFArrayRef array) {
  Array items;
  const CFIndex count = CFArrayGetCount(array);
  for (CFIndex i = 0; i < count; ++i) {
    if (auto item = valueOf(CFArrayGetValueAtIndex(array, i))) items.push_back(*std::move(item));
  }
  return items;
}

/// One kind of object. That a boolean is no number here is why the library can tell true from 1.
struct Reader {
  CFTypeID (*type)();
  std::optional<Value> (*read)(CFTypeRef);
};
using Read = std::optional<Value>;
constexpr Reader kReaders[] = {
    {CFStringGetTypeID, [](CFTypeRef o) -> Read { return textOf(static_cast<CFStringRef>(o)); }},
    {CFBooleanGetTypeID,
     [](CFTypeRef o) -> Read { return CFBooleanGetValue(static_cast<CFBooleanRef>(o)) != 0; }},
    {CFNumberGetTypeID, [](CFTypeRef o) -> Read { return numberOf(static_cast<CFNumberRef>(o)); }},
    {CFURLGetTypeID, [](CFTypeRef o) -> Read { return urlOf(static_cast<CFURLRef>(o)); }},
    {CFUUIDGetTypeID,
     [](CFTypeRef o) -> Read {
       return UUID(std::bit_cast<UUID::Bytes>(CFUUIDGetUUIDBytes(static_cast<CFUUIDRef>(o))));
     }},
    {CFDateGetTypeID,
     [](CFTypeRef o) -> Read { return Date{CFDateGetAbsoluteTime(static_cast<CFDateRef>(o))}; }},
    {CFDataGetTypeID, [](CFTypeRef o) -> Read { return dataOf(static_cast<CFDataRef>(o)); }},
    {CFArrayGetTypeID, [](CFTypeRef o) -> Read { return arrayOf(static_cast<CFArrayRef>(o)); }},
    {CFDictionaryGetTypeID,
     [](CFTypeRef o) -> Read { return dictionaryOf(static_cast<CFDictionaryRef>(o)); }},
};

/// The platform calls it: nothing may be thrown through its frames.
void addEntry(const void* key, const void* value, void* dictionary) noexcept {
  if (CFGetTypeID(key) != CFStringGetTypeID()) return;
  if (auto kept = valueOf(value))
    static_cast<Dictionary*>(dictionary)->set(textOf(static_cast<CFStringRef>(key)), *std::move(kept));
}

const UInt8* bytesOf(std::string_view text) {
  return reinterpret_cast<const UInt8*>(text.data());
}

CFIndex sizeOf(std::string_view text) {
  return static_cast<CFIndex>(text.size());
}

CFTypeRef createData(const Data& data) {
  return CFDataCreate(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(data.data()),
                      static_cast<CFIndex>(data.size()));
}

CFTypeRef createArray(const Array& items) {
  auto* const array = CFArrayCreateMutable(kCFAllocatorDefault, 0, &kCFTypeArrayCallBacks);
  for (const Value& item : items) {
    if (const auto object = createCF(item)) CFArrayAppendValue(array, object.get());
  }
  return array;
}

CFTypeRef createDictionary(const Dictionary& entries) {
  auto* const dictionary = CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks,
                                                     &kCFTypeDictionaryValueCallBacks);
  for (const auto& [key, value] : entries) {
    const auto name = createString(key);
    const auto object = createCF(value);
    if (name && object) CFDictionarySetValue(dictionary, name.get(), object.get());
  }
  return dictionary;
}

CFTypeRef createInteger(std::int64_t integer) {
  return CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt64Type, &integer);
}

CFTypeRef createReal(double real) {
  return CFNumberCreate(kCFAllocatorDefault, kCFNumberFloat64Type, &real);
}

CFTypeRef createUUID(const UUID& uuid) {
  return CFUUIDCreateFromUUIDBytes(kCFAllocatorDefault, std::bit_cast<CFUUIDBytes>(uuid.bytes()));
}

CF<CFTypeRef> foreignObjectOf(const std::shared_ptr<Object>& object) {
  const auto* const foreign = dynamic_cast<const ForeignObject*>(object.get());
  return foreign == nullptr ? CF<CFTypeRef>() : foreign->get();
}

/// The caller owns the reference.
CFTypeRef create(const Value& value) {
  using Kind = Value::Kind;
  switch (value.kind()) {
    case Kind::boolean:
      return CFRetain(value.boolValue() ? kCFBooleanTrue : kCFBooleanFalse);
    case Kind::integer:
      if (Value(value.integerValue()) != value)
        return createReal(value.doubleValue());  // above the signed range
      return createInteger(value.integerValue());
    case Kind::real:
      return createReal(value.doubleValue());
    case Kind::text:
      return createString(*value.asText()).release();
    case Kind::url:
      return createURL(*value.asURL()).release();
    case Kind::uuid:
      return createUUID(*value.asUUID());
    case Kind::date:
      return CFDateCreate(kCFAllocatorDefault, value.asDate()->secondsSinceReferenceDate);
    case Kind::data:
      return createData(*value.asData());
    case Kind::array:
      return createArray(*value.asArray());
    case Kind::dictionary:
      return createDictionary(*value.asDictionary());
    case Kind::object:
      return foreignObjectOf(value.asObject()).release();
  }
  return nullptr;
}

}  // namespace

std::optional<Value> valueOf(CFTypeRef object) {
  if (object == nullptr || object == kCFNull) return std::nullopt;
  const CFTypeID type = CFGetTypeID(object);
  for (const Reader& reader : kReaders) {
    if (reader.type() == type) return reader.read(object);
  }
  return std::make_shared<ForeignObject>(object);
}

Dictionary dictionaryOf(CFDictionaryRef dictionary) {
  Dictionary entries;
  if (dictionary != nullptr) CFDictionaryApplyFunction(dictionary, &addEntry, &entries);
  return entries;
}

std::string textOf(CFStringRef string) {
  if (string == nullptr) return {};
  const CFRange whole{0, CFStringGetLength(string)};
  CFIndex size = 0;
  CFStringGetBytes(string, whole, kCFStringEncodingUTF8, '?', 0, nullptr, 0, &size);
  std::string text(static_cast<std::size_t>(size), '\0');
  CFStringGetBytes(string, whole, kCFStringEncodingUTF8, '?', 0, reinterpret_cast<UInt8*>(text.data()), size,
                   nullptr);
  return text;
}

std::optional<URL> urlOf(CFURLRef url) {
  const auto absolute = CF<CFURLRef>::adopt(CFURLCopyAbsoluteURL(url));
  const auto text = URL::fromString(absolute ? textOf(CFURLGetString(absolute.get())) : std::string());
  if (!text || !text->isFileURL() || !text->path().starts_with('/')) return text;
  return URL::fileURLWithPath(text->path(), text->hasDirectoryPath());
}

CF<CFTypeRef> createCF(const Value& value) {
  return CF<CFTypeRef>::adopt(create(value));
}

CF<CFStringRef> createString(std::string_view utf8) {
  return CF<CFStringRef>::adopt(
      CFStringCreateWithBytes(kCFAllocatorDefault, bytesOf(utf8), sizeOf(utf8), kCFStringEncodingUTF8, 0));
}

CF<CFURLRef> createURL(const URL& url) {
  const std::string path = url.path();
  if (!url.isFileURL() || !path.starts_with('/')) {
    const std::string& text = url.absoluteString();
    return CF<CFURLRef>::adopt(CFURLCreateWithBytes(kCFAllocatorDefault, bytesOf(text), sizeOf(text),
                                                    kCFStringEncodingUTF8, nullptr));
  }
  return CF<CFURLRef>::adopt(CFURLCreateFromFileSystemRepresentation(kCFAllocatorDefault, bytesOf(path),
                                                                     sizeOf(path), url.hasDirectoryPath()));
}

}  // namespace kmv::macos
