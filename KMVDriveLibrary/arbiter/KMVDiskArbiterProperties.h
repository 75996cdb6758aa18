// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/AtomicProperty.h>
#include <KMVDriveLibrary/KMVDiskArbiter.h>
#include <KMVDriveLibrary/Mutex.h>
#include <KMVDriveLibrary/OpenWork.h>
#include <KMVDriveLibrary/RequiredProperty.h>

#include <atomic>
#include <memory>

/// The registry's fields.
struct KMVDiskArbiter::Properties {
  kmv::AtomicProperty<std::shared_ptr<kmv::PresentDriveTable>> presentDiskDictionaries;
  kmv::RequiredProperty<std::shared_ptr<kmv::SerialQueue>> assetMutexQueue{"KMVDiskArbiter: assetMutexQueue"};
  // The same two as every look-up reads them: lock-free and without reference counting, so that look-ups
  // write to no shared cache line and do not contend. In exchange the replaced values live as long as the
  // registry.
  std::atomic<kmv::PresentDriveTable*> presentForLookUps{nullptr};
  std::atomic<kmv::SerialQueue*> assetQueueForLookUps{nullptr};
  kmv::LiveSet<std::shared_ptr<const void>> keptForLookUps;
  kmv::Mutex settingForLookUps;  // both forms of a value change as one

  kmv::AtomicProperty<kmv::DiskArbitrationSession*> diskArbitrationSession;
  kmv::RequiredProperty<std::shared_ptr<kmv::UnmountedDiskList>> unmountedDiskDictionaries{
      "KMVDiskArbiter: unmountedDiskDictionaries"};
  kmv::RequiredProperty<std::shared_ptr<kmv::SerialQueue>> arbiterQueue{"KMVDiskArbiter: arbiterQueue"};
  kmv::RequiredProperty<std::shared_ptr<kmv::LiveArray<kmv::URL>>> disksAlreadyMountedAtInit{
      "KMVDiskArbiter: disksAlreadyMountedAtInit"};
  kmv::RequiredProperty<std::shared_ptr<kmv::LiveSet<kmv::URL>>> volumeURLsCurrentlyMounted{
      "KMVDiskArbiter: volumeURLsCurrentlyMounted"};
  kmv::RequiredProperty<std::shared_ptr<kmv::Semaphore>> readerWriterSemaphore{
      "KMVDiskArbiter: readerWriterSemaphore"};
  kmv::RequiredProperty<std::shared_ptr<kmv::LiveSet<Listener>>> informationProtcolClasses{
      "KMVDiskArbiter: informationProtcolClasses"};
  kmv::OpenWork commands;  // that the platform has not answered yet
};
