// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/AtomicProperty.h>
#include <KMVDriveLibrary/KMVDiskArbiter.h>

#include <atomic>
#include <memory>
#include <utility>

/// The registry's fields.
struct KMVDiskArbiter::Properties {
  /// One that every look-up reads. Reading writes nothing that another thread reads, so look-ups do not slow
  /// each other down; that is why a replaced value is kept until the registry goes.
  template <typename T>
  class ReadMostly {
   public:
    ReadMostly() { set(T{}); }
    ~ReadMostly() {
      for (const Node* node = newest_.load(); node != nullptr;) delete std::exchange(node, node->older);
    }
    ReadMostly(const ReadMostly&) = delete;
    ReadMostly& operator=(const ReadMostly&) = delete;

    /// Valid as long as the registry.
    const T& get() const { return newest_.load(std::memory_order_acquire)->value; }
    void set(T value) {
      auto* node = new Node{std::move(value), newest_.load(std::memory_order_relaxed)};
      while (!newest_.compare_exchange_weak(node->older, node, std::memory_order_acq_rel)) {
      }
    }

   private:
    struct Node {
      const T value;
      const Node* older;
    };
    std::atomic<const Node*> newest_{nullptr};
  };

  ReadMostly<std::shared_ptr<kmv::PresentDriveTable>> presentDiskDictionaries;
  ReadMostly<std::shared_ptr<kmv::SerialQueue>> assetMutexQueue;
  kmv::AtomicProperty<kmv::DiskArbitrationSession*> diskArbitrationSession;
  kmv::AtomicProperty<std::shared_ptr<kmv::UnmountedDiskList>> unmountedDiskDictionaries;
  kmv::AtomicProperty<std::shared_ptr<kmv::SerialQueue>> arbiterQueue;
  kmv::AtomicProperty<std::shared_ptr<kmv::LiveArray<kmv::URL>>> disksAlreadyMountedAtInit;
  kmv::AtomicProperty<std::shared_ptr<kmv::LiveSet<kmv::URL>>> volumeURLsCurrentlyMounted;
  kmv::AtomicProperty<std::shared_ptr<kmv::Semaphore>> readerWriterSemaphore;
  kmv::AtomicProperty<std::shared_ptr<kmv::LiveSet<Listener>>> informationProtcolClasses;
};
