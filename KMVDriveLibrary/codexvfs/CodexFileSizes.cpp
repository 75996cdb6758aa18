// SPDX-License-Identifier: MIT
#include "codexvfs/CodexFileSizes.h"

#include <KMVDriveLibrary/CodexExtendedAttributes.h>
#include <KMVDriveLibrary/Mutex.h>
#include <KMVDriveLibrary/host/CrossAppKit.h>
#include <KMVDriveLibrary/host/OrvaneDataIO.h>
#include <KMVDriveLibrary/host/OrvaneLogging.h>

#include <limits>
#include <memory>
#include <utility>

#include "base/AttributeNumber.h"
#include "base/Fatal.h"
#include "platform/Platform.h"

namespace {

using kmv::URL;

// Integer overflow is a programming error by the library's contract, wherever the sizes come from: it stops
// the process.

std::int64_t sum(std::int64_t a, std::int64_t b) {
  std::int64_t result = 0;
  if (__builtin_add_overflow(a, b, &result))
    kmv::fatal("Codex volume: sizes add up to more than 64 bits hold");
  return result;
}

std::int64_t magnitude(std::int64_t size) {
  if (size == std::numeric_limits<std::int64_t>::min())
    kmv::fatal("Codex volume: a size has no absolute value");
  return size < 0 ? -size : size;
}

std::int64_t signedSize(std::uint64_t size) {
  if (size > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()))
    kmv::fatal("Codex volume: a size is beyond a signed number of 64 bits");
  return static_cast<std::int64_t>(size);
}

/// What the rule asks about a file, answered by the helpers that the host may have replaced.
class AskedFile {
 public:
  explicit AskedFile(const URL& url) : url_(url) {}

  std::optional<std::uint64_t> size() const {
    return unlessThrown([&] { return helpers().sizeOfFileAtPath(url_.path()); });
  }
  std::optional<std::uint64_t> aggregateSize() const {
    return unlessThrown([&] {
      return std::optional(
          helpers().aggregateFileSize(url_, nullptr, CrossAppFileManager::kSkipsHiddenFiles));
    });
  }
  bool isFile() const {
    return kmv::Platform::current().files().itemKind(url_.path()) == kmv::ItemKind::file;
  }
  std::optional<std::int64_t> estimate() const { return kmv::codexEstimatedHDESize(url_); }

  static CrossAppFileManager& helpers() { return CrossAppFileManager::defaultManager(); }

 private:
  /// A host's helper may throw anything: the size is unknown then.
  template <typename Question>
  static std::optional<std::uint64_t> unlessThrown(const Question& question) {
    try {
      return question();
    } catch (...) {
      return std::nullopt;
    }
  }

  const URL& url_;
};

/// The same, answered by what a walk saw: the helpers' own answers, as long as the host has replaced none.
class SeenFile {
 public:
  explicit SeenFile(const kmv::WalkedFile& file) : file_(file) {}

  std::optional<std::uint64_t> size() const { return file_.size; }
  std::optional<std::uint64_t> aggregateSize() const { return file_.size; }
  static bool isFile() { return true; }
  std::optional<std::int64_t> estimate() const {
    return file_.attribute ? kmv::numberInAttribute(*file_.attribute) : std::nullopt;
  }

 private:
  const kmv::WalkedFile& file_;
};

/// The size of a file; none where nothing tells it.
template <typename File>
std::optional<std::int64_t> sizeByRule(const File& file) {
  if (file.size().value_or(0) != 0) {
    const auto size = file.aggregateSize();
    return size ? std::optional(signedSize(*size)) : std::nullopt;
  }
  return file.isFile() ? file.estimate() : std::nullopt;
}

std::string descriptionOf(const kmv::Error& error) {
  return "Error Domain=" + error.domain + " Code=" + std::to_string(error.code);
}

/// Counts the bytes that a reader supplies, on the reader's threads.
class CountedBytes {
 public:
  void add(std::size_t bytes) {
    const kmv::MutexLock lock(mutex_);
    bytes_ = sum(bytes_, signedSize(bytes));
  }
  void close() {
    const kmv::MutexLock lock(mutex_);
    isClosed_ = true;
    closed_.notifyAll();
  }
  std::int64_t whenClosed() {
    kmv::MutexLock lock(mutex_);
    while (!isClosed_) closed_.wait(lock);
    return bytes_;
  }

 private:
  kmv::Mutex mutex_;
  kmv::ConditionVariable closed_;
  bool isClosed_ KMV_GUARDED_BY(mutex_) = false;
  std::int64_t bytes_ KMV_GUARDED_BY(mutex_) = 0;
};

/// The bytes that can be read from a file.
std::int64_t readSizeOf(const URL& url) {
  const auto counted = std::make_shared<CountedBytes>();
  const std::shared_ptr<StreamFileReader> reader = StreamFileReader::reader(url);
  const auto count = [counted](StreamFileReader::Buffer, std::size_t byteCount, bool&) {
    counted->add(byteCount);
  };
  if (reader == nullptr) return 0;
  // Weak: a reader that stores its handlers would own itself (a cycle) and never be released.
  const auto close = [counted, weak = std::weak_ptr(reader), url](const std::optional<kmv::Error>& error) {
    if (error)
      OrvaneLog::defaultLog().logInfo("KMV_CodexVFS-actualFileSize(of:'" + url.absoluteString() +
                                      "') error: " + descriptionOf(*error));
    if (const auto open = weak.lock()) open->closeIOWithCompletionHandler([counted] { counted->close(); });
  };
  // Whether it is open makes no difference: the cycle then says why not.
  reader->openForReading([weak = std::weak_ptr(reader), count, close](bool) {
    if (const auto open = weak.lock()) open->beginByteSupplyCycle(count, close);
  });
  return counted->whenClosed();
}

std::int64_t actualFileSize(const URL& url) {
  const AskedFile file(url);
  std::int64_t size = 0;
  if (file.size().value_or(0) != 0) size = signedSize(file.size().value_or(0));
  if (size == 0) size = readSizeOf(url);
  if (size == 0)
    OrvaneLog::defaultLog().logInfo("KMV_CodexVFS-File size of 0 found for '" + url.lastPathComponent() +
                                    "' while parsing Codex stack.");
  return size;
}

}  // namespace

std::optional<std::int64_t> CodexFileSizes::sizeOfFile(const URL& file) {
  return sizeByRule(AskedFile(file));
}

std::int64_t CodexFileSizes::walk(const std::string& folder) {
  std::int64_t total = 0;
  asksHelpers_ = AskedFile::helpers().hasReplacedFileSizes();
  kmv::Platform::current().treeWalk().visitFiles(
      folder, kmv::codexAttributeName(CodexExtendedAttributes::extimatedHDESize),
      [&](const kmv::WalkedFile& file) {
        count(file, total);
        return true;
      });
  return total;
}

void CodexFileSizes::count(const kmv::WalkedFile& file, std::int64_t& total) {
  if (!asksHelpers_) {
    if (const auto size = sizeByRule(SeenFile(file))) return remember(file.path, *size, total);
  }
  const URL url = URL::fileURLWithPath(file.path, /*isDirectory=*/false);
  const AskedFile asked(url);
  if (asksHelpers_) {
    if (const auto size = sizeByRule(asked)) return remember(file.path, *size, total);
  }
  if (asked.size().value_or(0) != 0) return remember(file.path, actualFileSize(url), total);
  if (const auto before = known(file.path); before && *before != -1) {
    total = sum(total, magnitude(*before));  // and nothing is remembered anew
    return;
  }
  if (const auto size = sizeByRule(asked)) return remember(file.path, *size, total);
  OrvaneLog::defaultLog().logError(
      "KMV_CodexVFS-Could not get extended attributes estimatedSize for file at path: '" +
      std::string(file.path) + "' defaulting to 0....");
}

std::optional<std::int64_t> CodexFileSizes::known(std::string_view path) const {
  const auto found = cachedFileSizeLookup_.find(path);
  return found == cachedFileSizeLookup_.end() ? std::nullopt : std::optional(found->second);
}

void CodexFileSizes::remember(std::string_view path, std::int64_t size, std::int64_t& total) {
  const auto found = cachedFileSizeLookup_.find(path);
  std::int64_t before = 0;
  if (found == cachedFileSizeLookup_.end()) {
    cachedFileSizeLookup_.emplace(path, size);
  } else {
    before = std::exchange(found->second, size);
  }
  aggregateSize_ = sum(aggregateSize_ - magnitude(before), magnitude(size));
  total = sum(total, magnitude(size));
}
