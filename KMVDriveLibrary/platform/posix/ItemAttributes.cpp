// SPDX-License-Identifier: MIT
#include "platform/posix/ItemAttributes.h"

#include <sys/stat.h>

namespace kmv {
namespace {

Date dateOf(const timespec& time) {
  return {static_cast<double>(time.tv_sec) - Date::kReferenceDate + static_cast<double>(time.tv_nsec) * 1e-9};
}

const char* typeOf(mode_t mode) {
  switch (mode & S_IFMT) {
    case S_IFREG:
      return "NSFileTypeRegular";
    case S_IFDIR:
      return "NSFileTypeDirectory";
    case S_IFLNK:
      return "NSFileTypeSymbolicLink";
    case S_IFSOCK:
      return "NSFileTypeSocket";
    case S_IFCHR:
      return "NSFileTypeCharacterSpecial";
    case S_IFBLK:
      return "NSFileTypeBlockSpecial";
    default:
      return "NSFileTypeUnknown";
  }
}

}  // namespace

std::optional<Dictionary> attributesOfItemAt(const std::string& path) {
  const auto status = statusOfItem(path);
  if (!status) return std::nullopt;
  Dictionary attributes{{"NSFileSize", status->size},
                        {"NSFileModificationDate", dateOf(status->modified)},
                        {"NSFileType", typeOf(status->mode)},
                        {"NSFilePosixPermissions", status->mode & 07777},
                        {"NSFileReferenceCount", status->links},
                        {"NSFileSystemNumber", status->device},
                        {"NSFileSystemFileNumber", status->inode},
                        {"NSFileOwnerAccountID", status->owner},
                        {"NSFileGroupOwnerAccountID", status->group}};
  if (status->created) attributes.set("NSFileCreationDate", dateOf(*status->created));
  return attributes;
}

}  // namespace kmv
