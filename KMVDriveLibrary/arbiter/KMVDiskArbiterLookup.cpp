// SPDX-License-Identifier: MIT
// Which drive a thing belongs to, and what it is called: from URLs to drives, from UUIDs to URLs.
#include <KMVDriveLibrary/DescriptionKeys.h>
#include <KMVDriveLibrary/Exception.h>
#include <KMVDriveLibrary/KMVDiskArbiter.h>
#include <KMVDriveLibrary/KMVDriveKeys.h>
#include <KMVDriveLibrary/NotificationCenter.h>

#include <string>
#include <utility>

#include "arbiter/Descriptions.h"
#include "arbiter/KMVDiskArbiterProperties.h"
#include "arbiter/WriterLock.h"
#include "base/UTF8.h"
#include "platform/Platform.h"

namespace {

using kmv::DictionarySnapshot;
using kmv::URL;

/// How often a look-up asks for a volume before it gives up: the URL itself, then the folders above it.
constexpr int kMostAttempts = 100;

/// Written by the maker's applications into the root of a drive; only read here.
constexpr char kMarkerFileName[] = ".OrvaneProductsUUID.orv";
/// A marker holds one UUID; whatever is far larger is no marker.
constexpr std::size_t kLargestMarkerInBytes = 64 * 1024;

[[noreturn]] void raiseInvalidURL(const std::optional<URL>& url) {
  const std::string text = url ? url->absoluteString() : "(null)";
  throw kmv::Exception("Invalid URL",
                       "The url passed into " + text + " does not seem to have a valid root url");
}

/// The root of the volume that holds `url` or, when there is nothing at `url`, the nearest folder above it.
URL volumeOf(const std::optional<URL>& url) {
  if (!url) raiseInvalidURL(url);
  auto& volumes = kmv::Platform::current().volumes();
  if (auto volume = volumes.volumeURL(*url)) return *std::move(volume);
  URL place = *url;
  for (int attempt = 1; attempt < kMostAttempts; ++attempt) {
    place = place.deletingLastPathComponent();
    if (auto volume = volumes.volumeURL(place)) return *std::move(volume);
  }
  raiseInvalidURL(url);
}

/// Decodes bytes as Latin-1 (ISO 8859-1), of which ASCII is a part, so decoding never fails.
std::string textOfASCII(const std::string& bytes) {
  std::string text;
  for (const char c : bytes) kmv::appendUTF8(text, static_cast<unsigned char>(c));
  return text;
}

std::optional<URL> volumePathOf(const KMVDiskArbiter::Drive& drive) {
  if (drive == nullptr) return std::nullopt;
  return kmv::urlUnder(kDiskURLKey, *drive->snapshot());
}

std::optional<std::string> driveUUIDOf(const KMVDiskArbiter::Drive& drive) {
  if (drive == nullptr) return std::nullopt;
  const auto contents = drive->snapshot();
  const std::string* uuid = contents->text(kDiskUUIDKey);
  return uuid == nullptr ? std::nullopt : std::optional<std::string>(*uuid);
}

DictionarySnapshot descriptionAt(const KMVDiskArbiter& arbiter, const URL& volume) {
  auto* session = arbiter.diskArbitrationSession();
  if (session == nullptr) return nullptr;
  return kmv::descriptionOf(session->diskFromVolumePath(volume).get());
}

}  // namespace

KMVDiskArbiter::Drive KMVDiskArbiter::findRootMountDictionaryForURL(const std::optional<URL>& url) {
  const URL volume = volumeOf(url);
  if (Drive known = findRootMountDictionaryForRootURL(volume)) return known;
  if (descriptionAt(*this, volume) == nullptr) return nullptr;  // may wait for the disk's identification
  Drive drive;
  arbiterQueue()->sync([&] {
    // Checked again, and quick by now. No race with the volume's removal: what the platform reports from here
    // on waits behind this block, so a volume that went away meanwhile is not registered after its removal.
    const DictionarySnapshot description = descriptionAt(*this, volume);
    if (description != nullptr) drive = addDiskWithRepresentationToTheList(description);
  });
  return drive;
}

std::optional<URL> KMVDiskArbiter::findRootDriveURLForPathURL(const std::optional<URL>& url) {
  return volumePathOf(findRootMountDictionaryForURL(url));
}

KMVDiskArbiter::Drive KMVDiskArbiter::findRootMountDictionaryForRootURL(const URL& rootURL) const {
  kmv::PresentDriveTable* const present = properties_->presentForLookUps.load(std::memory_order_acquire);
  if (present == nullptr) return nullptr;
  const URL key = kmv::URLByStandardizingPath(rootURL);
  Drive drive;
  properties_->assetQueueForLookUps.load(std::memory_order_acquire)->sync([&] {
    drive = present->find(key);
  });
  return drive;
}

std::optional<URL> KMVDiskArbiter::volumeRootForPathAtURL(const std::optional<URL>& url) {
  if (!url) return std::nullopt;
  const auto volume = kmv::Platform::current().volumes().volumeURL(*url);
  if (!volume) return std::nullopt;
  URL root = kmv::URLByStandardizingPath(*volume);
  const bool exists = kmv::Platform::current().files().itemKind(root.path()) != kmv::ItemKind::none;
  return exists ? std::optional<URL>(std::move(root)) : std::nullopt;
}

std::optional<std::string> KMVDiskArbiter::uuidFromOrvaneFileForDriveRepresentedByURL(
    const std::optional<URL>& url) {
  if (!url) return std::nullopt;
  const auto root = findRootDriveURLForPathURL(url);
  if (!root) return std::nullopt;
  const std::string path = root->appendingPathComponent(kMarkerFileName, /*isDirectory=*/false).path();
  const auto bytes = kmv::Platform::current().files().readRegularFile(path, kLargestMarkerInBytes).bytes;
  if (!bytes || bytes->empty()) return std::nullopt;  // an empty file is no marker; nothing is trimmed
  return textOfASCII(*bytes);
}

std::optional<std::string> KMVDiskArbiter::uuidForOperatingSystemDrive() const {
  return driveUUIDOf(findRootMountDictionaryForRootURL(URL::fileURLWithPath("/", /*isDirectory=*/true)));
}

bool KMVDiskArbiter::updateUUIDForDictionaryWithURL(const std::optional<URL>& url,
                                                    std::optional<std::string_view> toUUID) {
  const auto present = presentDiskDictionaries();
  if (!url || !toUUID || present == nullptr) return false;
  Drive drive;
  {
    kmv::WriterLock writer(*this);
    assetMutexQueue()->sync([&] {
      drive = present->firstWithVolumePath(*url);  // equal URLs only, nothing is standardised
      if (drive != nullptr) drive->set(kDiskUUIDKey, *toUUID);
    });
  }
  if (drive == nullptr) return false;
  kmv::NotificationCenter::defaultCenter().post(
      {std::string(kDiskArbiterChangedDiskDetectedNotification), drive, nullptr});
  return true;
}

std::optional<URL> KMVDiskArbiter::mountURLForDriveWithUUID(std::string_view uuid) const {
  const auto present = presentDiskDictionaries();
  if (present == nullptr) return std::nullopt;
  Drive drive;
  assetMutexQueue()->sync([&] { drive = present->firstWithUUID(uuid); });
  return volumePathOf(drive);
}

DictionarySnapshot KMVDiskArbiter::forceReadDetailsOfDriveMountedAtPath(std::string_view path) const {
  return descriptionAt(*this, URL::fileURLWithPath(path, /*isDirectory=*/true));
}
