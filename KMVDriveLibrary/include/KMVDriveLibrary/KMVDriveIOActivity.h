// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/AtomicProperty.h>
#include <KMVDriveLibrary/Export.h>
#include <KMVDriveLibrary/KMVDriveActivityDelta.h>

#include <memory>
#include <utility>

/// What one drive read and wrote in one cycle; a side without activity is null.
/// Threads: every member may be called from any thread.
class KMV_EXPORT KMVDriveIOActivity : public kmv::Object {
 public:
  using Delta = std::shared_ptr<KMVDriveActivityDelta>;

  /// Selector: initWithReadDelta:writeDelta:
  KMVDriveIOActivity(Delta readDelta, Delta writeDelta);
  ~KMVDriveIOActivity() override;

  /// The bytes read; null when none were.
  Delta readDelta() const { return readDelta_.get(); }
  void setReadDelta(Delta delta) { readDelta_.set(std::move(delta)); }
  /// The bytes written; null when none were.
  Delta writeDelta() const { return writeDelta_.get(); }
  void setWriteDelta(Delta delta) { writeDelta_.set(std::move(delta)); }

 private:
  kmv::AtomicProperty<Delta> readDelta_;
  kmv::AtomicProperty<Delta> writeDelta_;
};
