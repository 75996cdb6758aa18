// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/KMVDiskArbiter.h>

#include <mutex>

/// The registry's fields. The mutex makes the properties atomic; the objects that they hold guard themselves.
struct KMVDiskArbiter::Properties {
  template <typename T>
  T get(T Properties::*property) const {
    std::lock_guard lock(mutex);
    return this->*property;
  }
  template <typename T>
  void set(T Properties::*property, T value) {
    std::lock_guard lock(mutex);
    std::swap(this->*property, value);  // the old value goes outside the lock, with the parameter
  }

  mutable std::mutex mutex;
  kmv::DiskArbitrationSession* diskArbitrationSession = nullptr;
  std::shared_ptr<kmv::PresentDriveTable> presentDiskDictionaries;
  std::shared_ptr<kmv::UnmountedDiskList> unmountedDiskDictionaries;
  std::shared_ptr<kmv::SerialQueue> arbiterQueue;
  std::shared_ptr<kmv::LiveArray<kmv::URL>> disksAlreadyMountedAtInit;
  std::shared_ptr<kmv::LiveSet<kmv::URL>> volumeURLsCurrentlyMounted;
  std::shared_ptr<kmv::Semaphore> readerWriterSemaphore;
  std::shared_ptr<kmv::SerialQueue> assetMutexQueue;
  std::shared_ptr<kmv::LiveSet<Listener>> informationProtcolClasses;
};
