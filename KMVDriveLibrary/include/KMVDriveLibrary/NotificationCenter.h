// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Export.h>
#include <KMVDriveLibrary/Value.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace kmv {

class DriveDictionary;

/// What a notification is about: nothing, a live drive dictionary, an immutable dictionary, or an object.
class KMV_EXPORT NotificationObject {
 public:
  NotificationObject() = default;
  // NOLINTBEGIN(google-explicit-constructor): posting reads better with the object as it stands.
  NotificationObject(std::shared_ptr<DriveDictionary> drive) : storage_(std::move(drive)) {}
  NotificationObject(DictionarySnapshot dictionary) : storage_(std::move(dictionary)) {}
  NotificationObject(std::shared_ptr<Object> object) : storage_(std::move(object)) {}
  // NOLINTEND(google-explicit-constructor)

  /// The live drive dictionary; null when the object is something else.
  std::shared_ptr<DriveDictionary> drive() const;
  /// The content: the dictionary itself, or the live dictionary's content at this moment; null when it is not
  /// a dictionary.
  DictionarySnapshot dictionary() const;
  /// The object; null when it is a dictionary or nothing.
  std::shared_ptr<Object> object() const;
  /// The address that an observer's object filter is compared with; null for nothing.
  const void* identity() const;

 private:
  std::variant<std::monostate, std::shared_ptr<DriveDictionary>, DictionarySnapshot, std::shared_ptr<Object>>
      storage_;
};

/// One announcement.
/// A value: observers may copy and keep it.
struct Notification {
  std::string name;
  NotificationObject object;
  DictionarySnapshot userInfo;  ///< null when the notification has none
};

/// Delivers notifications to the observers that registered for them.
///
/// Posting is synchronous: every observer has run when `post` returns, on the posting thread, in order of
/// registration (those of one name and those of all names mixed).
/// A post works on a snapshot of the observers taken at its start, so observers may post, add and remove
/// (re-entrancy).
/// An observer added during a post is not called for it.
/// A removed one is not called any more, unless its call had begun on another thread.
/// Threads: every member may be called from any thread.
/// Observers run outside the centre's lock.
class KMV_EXPORT NotificationCenter {
 public:
  using Observer = std::function<void(const Notification&)>;

  /// Keeps an observer registered while it lives.
  /// Empty after a move.
  class KMV_EXPORT Registration {
   public:
    Registration();
    ~Registration();
    Registration(Registration&& other) noexcept;
    Registration& operator=(Registration&& other) noexcept;

    /// Ends the registration now.
    /// The observer is released when no post in flight uses it any more.
    void unregister();

   private:
    friend class NotificationCenter;
    struct Core;
    explicit Registration(std::unique_ptr<Core> core);
    std::unique_ptr<Core> core_;
  };

  NotificationCenter();
  ~NotificationCenter();
  NotificationCenter(const NotificationCenter&) = delete;
  NotificationCenter& operator=(const NotificationCenter&) = delete;

  /// The default centre of the process, on which the library posts everything.
  /// Lifetime: the process.
  static NotificationCenter& defaultCenter();

  /// Calls `observer` for every notification named `name` (none: of any name) whose object has the address
  /// `object` (null: any object).
  /// Objects are compared by identity, never by content.
  [[nodiscard]] Registration addObserver(std::optional<std::string_view> name, Observer observer,
                                         const void* object = nullptr);

  /// Calls the observers on the calling thread.
  /// Thread: any.
  void post(const Notification& notification);

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace kmv
