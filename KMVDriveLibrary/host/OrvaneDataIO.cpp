// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/AtomicProperty.h>
#include <KMVDriveLibrary/host/OrvaneDataIO.h>

#include <cstring>
#include <string>
#include <utility>

#include "platform/Platform.h"

namespace {

constexpr std::size_t kBlock = 1 << 20;
constexpr char kDomain[] = "StreamFileReader";

kmv::AtomicProperty<StreamFileReader::Factory>& factoryInUse() {
  // Never destroyed: any thread may ask until the process ends.
  static auto* const factory = new kmv::AtomicProperty<StreamFileReader::Factory>;
  return *factory;
}

class DefaultReader final : public StreamFileReader {
 public:
  explicit DefaultReader(const kmv::URL& file) : path_(file.path()) {}

  void openForReading(OpenHandler completion) override {
    stream_ = kmv::Platform::current().files().openForReading(path_);
    completion(stream_ != nullptr);
  }

  void beginByteSupplyCycle(UpdateBlock updateBlock, CompletionBlock completionBlock) override {
    if (stream_ == nullptr) {
      completionBlock(kmv::Error{kDomain, 1});
      return;
    }
    for (bool stop = false; !stop;) {
      const auto bytes = stream_->read(kBlock);
      if (!bytes) {
        completionBlock(kmv::Error{kDomain, 2});
        return;
      }
      if (bytes->empty()) break;
      Buffer buffer(new std::byte[bytes->size()]);
      std::memcpy(buffer.get(), bytes->data(), bytes->size());
      updateBlock(std::move(buffer), bytes->size(), stop);
    }
    completionBlock(std::nullopt);
  }

  void closeIOWithCompletionHandler(std::function<void()> completion) override {
    stream_ = nullptr;
    completion();
  }

 private:
  std::string path_;
  std::unique_ptr<kmv::FileStream> stream_;
};

}  // namespace

StreamFileReader::~StreamFileReader() = default;

std::shared_ptr<StreamFileReader> StreamFileReader::reader(const kmv::URL& file) {
  if (const Factory factory = factoryInUse().get()) return factory(file);
  return std::make_shared<DefaultReader>(file);
}

void StreamFileReader::setFactory(Factory factory) {
  factoryInUse().set(std::move(factory));
}
