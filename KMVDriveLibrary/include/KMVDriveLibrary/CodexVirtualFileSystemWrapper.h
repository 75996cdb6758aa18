// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Export.h>
#include <KMVDriveLibrary/URL.h>
#include <KMVDriveLibrary/Value.h>
#include <KMVDriveLibrary/host/OrvaneApp.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

/// One mounted Codex volume, or rather its root path: another volume mounted there later does not reset the wrapper.
/// Polls its state document every 3 seconds until that says that the volume is built, then adds up the sizes
/// of its files.
/// Tells the host the size by `sizeUpdated` and by the notification `virtualFileSystemWrapperHasUpdated`,
/// whose object is the wrapper.
///
/// Owner:   held by `std::shared_ptr`.
///          KMVDriveWrapperManager makes one for each root path and keeps it for ever, whatever is mounted there
///          later (see its `codexVFSWrapper`); get it there.
///          A scheduled check keeps its wrapper alive, so the wrapper of a volume that is never built is
///          never released.
/// Threads: every member may be called from any thread unless it says otherwise.
///          The document is read on the queue "CodexVFSUpdateQueue", files are looked at on
///          "codexVFSFileSizeCalculationQueue"; both belong to the wrapper, so a volume that does not answer
///          blocks only those who ask about it.
///          The timer of the checks fires on the main queue, which hands the check on and does not block.
/// Volume:  no descriptor is open on it except while the document is read or sizes are added up.
class KMV_EXPORT CodexVirtualFileSystemWrapper
    : public kmv::Object,
      public VirtualFileSystemWrapper,
      public std::enable_shared_from_this<CodexVirtualFileSystemWrapper> {
 public:
  /// Reads the document of the volume mounted at `root`, begins to watch it, and to work out its size if it
  /// is built.
  /// Waits for the volume.
  /// Selector: initWithRoot:
  static std::shared_ptr<CodexVirtualFileSystemWrapper> initWithRoot(const kmv::URL& root);
  ~CodexVirtualFileSystemWrapper() override;
  CodexVirtualFileSystemWrapper(const CodexVirtualFileSystemWrapper&) = delete;
  CodexVirtualFileSystemWrapper& operator=(const CodexVirtualFileSystemWrapper&) = delete;

  /// True when `url` is on a FUSE volume that is no tape and holds a state document; `withDictionary` is the
  /// dictionary of its drive.
  /// False for a URL that leads to no volume: unlike the registry's look-ups, this throws nothing.
  /// Waits for the volume.
  /// Selector: +urlIsInVirtualFileSystem:withDictionary:
  static bool urlIsInVirtualFileSystem(const kmv::URL& url, const kmv::Dictionary& withDictionary);

  /// "Codex HDE Virtual FS" at first.
  std::string driveTypeString() const override;
  void setDriveTypeString(std::string text);
  kmv::URL vfsRoot() const override;
  /// `VirtualFileSystemType::codexHDE` at first.
  VirtualFileSystemType vfsType() const override;
  void setVfsType(VirtualFileSystemType type);

  /// True once the volume has been seen built; the document is not read any more then.
  /// Until then every call reads it, and when it is still not built begins one more chain of checks, 3
  /// seconds apart: intended.
  /// The call that first sees it built has the size worked out.
  /// Waits for the volume.
  /// Thread: any but the update queue.
  bool vfsIsReady() override;

  /// True when the size has been worked out; it stays so.
  /// Waits for the update queue.
  bool sizeIsCalculated() const override;
  /// The size in bytes of all files that were looked at so far; none before it was worked out.
  /// Waits for the update queue.
  std::optional<std::int64_t> estimatedVFSSize() const override;
  /// Is called on the size queue with the volume's size in bytes when it has been worked out; and soon after
  /// it is set, with what is known then, 0 at first.
  /// Resetting the handler before that call stops the process: intended.
  SizeHandler sizeUpdated() const override;
  void setSizeUpdated(SizeHandler handler) override;

  /// What the file system says of the root ("NSFileModificationDate" and so on); none when it says nothing.
  /// Waits for the volume.
  std::optional<kmv::Dictionary> vfsFileAttributes() const override;
  /// When the root was last changed.
  /// Waits for the volume.
  std::optional<kmv::Date> vfsLastModifiedDate() const override;

  /// Reads the document anew, later, on the update queue; then, if `shouldUpdateSize`, looks at once whether
  /// the volume is ready and has its size worked out.
  /// Selector: updateWrapperWithShouldUpdateSize: (Swift updateWrapper(shouldUpdateSize:))
  void updateWrapper(bool shouldUpdateSize) override;
  /// Reads the document anew, later; measures nothing.
  /// When it is this, or `updateWrapper(false)`, that first sees the volume built, the checks that follow
  /// find it built already and nothing begins to work out its size until `updateWrapper(true)`: intended.
  /// Selector: inspectVFSForLoadActivity
  void inspectVFSForLoadActivity();

  /// The size in bytes of the file or folder at `at`; 0 when there is none, or nothing tells its size.
  /// Waits for the volume.
  /// As a rule walks on the calling thread, whose stack needs 1 MiB for the deepest trees.
  /// Thread: any but the size queue.
  /// Selector: getFileSizeOfItemAt: (Swift getFileSizeOfItem(at:))
  std::int64_t getFileSizeOfItem(const kmv::URL& at) override;

 private:
  struct Fields;
  explicit CodexVirtualFileSystemWrapper(const kmv::URL& root);
  struct Readiness {
    bool isReady = false;
    bool hasJustBecomeReady = false;
  };
  Readiness lookWhetherReady();
  void check();
  void calculateSize();
  void calculateSize(bool isReady);
  void estimateSize();

  std::unique_ptr<Fields> fields_;
};
