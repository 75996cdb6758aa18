// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/KMVDiskArbiter.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <utility>

/// The registry's fields: read with every event and every look-up, and replaced hardly ever. Reading writes
/// nothing that another thread reads, so look-ups do not slow each other down; that is why a replaced value
/// is kept until the registry goes.
struct KMVDiskArbiter::Properties {
  template <typename T>
  class Property {
   public:
    Property() { set(T{}); }
    ~Property() {
      for (const Node* node = newest_.load(); node != nullptr;) delete std::exchange(node, node->older);
    }
    Property(const Property&) = delete;
    Property& operator=(const Property&) = delete;

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

  Property<kmv::DiskArbitrationSession*> diskArbitrationSession;
  Property<std::shared_ptr<kmv::PresentDriveTable>> presentDiskDictionaries;
  Property<std::shared_ptr<kmv::UnmountedDiskList>> unmountedDiskDictionaries;
  Property<std::shared_ptr<kmv::SerialQueue>> arbiterQueue;
  Property<std::shared_ptr<kmv::LiveArray<kmv::URL>>> disksAlreadyMountedAtInit;
  Property<std::shared_ptr<kmv::LiveSet<kmv::URL>>> volumeURLsCurrentlyMounted;
  Property<std::shared_ptr<kmv::Semaphore>> readerWriterSemaphore;
  Property<std::shared_ptr<kmv::SerialQueue>> assetMutexQueue;
  Property<std::shared_ptr<kmv::LiveSet<Listener>>> informationProtcolClasses;
};
