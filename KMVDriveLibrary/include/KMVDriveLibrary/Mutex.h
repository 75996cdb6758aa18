// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

// A mutex that the compiler checks: clang's thread-safety analysis (-Wthread-safety, an error in our clang
// builds) refuses an access to a member marked KMV_GUARDED_BY while its mutex is not held.
// Other compilers see plain types.
//
//   kmv::Mutex mutex_;
//   int count_ KMV_GUARDED_BY(mutex_) = 0;
//   void add() { const kmv::MutexLock lock(mutex_); ++count_; }
//   void addLocked() KMV_REQUIRES(mutex_) { ++count_; }
#if defined(__clang__)
#  define KMV_THREAD_ANNOTATION(attribute) __attribute__((attribute))
#else
#  define KMV_THREAD_ANNOTATION(attribute)
#endif

/// The member may be used only while the mutex is held.
#define KMV_GUARDED_BY(mutex) KMV_THREAD_ANNOTATION(guarded_by(mutex))
/// What the pointer points to may be used only while the mutex is held.
#define KMV_PT_GUARDED_BY(mutex) KMV_THREAD_ANNOTATION(pt_guarded_by(mutex))
/// The caller holds the mutex.
#define KMV_REQUIRES(...) KMV_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
/// The caller must not hold the mutex: the function takes it, or waits for who does.
#define KMV_EXCLUDES(...) KMV_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
/// The function takes the mutex and keeps it.
#define KMV_ACQUIRE(...) KMV_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
/// The function gives the mutex back.
#define KMV_RELEASE(...) KMV_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
/// The function takes the mutex when it returns the first argument.
#define KMV_TRY_ACQUIRE(...) KMV_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))
/// Not checked.
/// Say why beside it.
#define KMV_NO_THREAD_SAFETY_ANALYSIS KMV_THREAD_ANNOTATION(no_thread_safety_analysis)

namespace kmv {

/// `std::mutex` with annotations.
class KMV_THREAD_ANNOTATION(capability("mutex")) Mutex {
 public:
  Mutex() = default;
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  void lock() KMV_ACQUIRE() { mutex_.lock(); }
  void unlock() KMV_RELEASE() { mutex_.unlock(); }
  bool try_lock() KMV_TRY_ACQUIRE(true) { return mutex_.try_lock(); }

 private:
  friend class MutexLock;
  std::mutex mutex_;
};

/// Holds a mutex until the end of its scope; may let go of it and take it again in between.
class KMV_THREAD_ANNOTATION(scoped_lockable) MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) KMV_ACQUIRE(mutex) : lock_(mutex.mutex_) {}
  /// Takes over a mutex that the thread already holds.
  MutexLock(Mutex& mutex, std::adopt_lock_t) KMV_REQUIRES(mutex) : lock_(mutex.mutex_, std::adopt_lock) {}
  ~MutexLock() KMV_RELEASE() {}
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

  void lock() KMV_ACQUIRE() { lock_.lock(); }
  void unlock() KMV_RELEASE() { lock_.unlock(); }

 private:
  friend class ConditionVariable;
  std::unique_lock<std::mutex> lock_;
};

/// `std::condition_variable` for `MutexLock`.
/// There is no predicate form: a loop around the wait reads guarded members where the analysis sees that the
/// mutex is held.
class ConditionVariable {
 public:
  void wait(MutexLock& lock) { condition_.wait(lock.lock_); }
  /// False when the time was up first.
  template <typename Clock, typename Duration>
  bool waitUntil(MutexLock& lock, const std::chrono::time_point<Clock, Duration>& time) {
    return condition_.wait_until(lock.lock_, time) == std::cv_status::no_timeout;
  }
  template <typename Rep, typename Period>
  bool waitFor(MutexLock& lock, const std::chrono::duration<Rep, Period>& time) {
    return condition_.wait_for(lock.lock_, time) == std::cv_status::no_timeout;
  }
  void notifyOne() noexcept { condition_.notify_one(); }
  void notifyAll() noexcept { condition_.notify_all(); }

 private:
  std::condition_variable condition_;
};

}  // namespace kmv
