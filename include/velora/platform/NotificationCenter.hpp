#pragma once
// In-process notifications: a part of the library (or the application) announces a change by
// name, and every observer of that name hears of it. Positions and headings reach the map view
// this way, so that whatever produces them needs no reference to the views that show them.

#include <any>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <velora/core/Executor.hpp>

namespace velora {

/// One announcement: what happened, and the values that go with it.
struct Notification {
  /// What happened; observers subscribe by this name.
  std::string name;
  /// Entries by key; a notification's record travels under "payload".
  std::map<std::string, std::any> userInfo;

  /// The entry under `key` when it holds a T; nothing otherwise.
  template <class T>
  const T* value(const std::string& key) const {
    auto it = userInfo.find(key);
    return it == userInfo.end() ? nullptr : std::any_cast<T>(&it->second);
  }
};

/// Delivers notifications by name to their observers. Safe to use from any thread; make one with
/// make(), since observations refer back to their center.
class NotificationCenter : public std::enable_shared_from_this<NotificationCenter> {
 public:
  /// Receives each notification of the observed name.
  using Observer = std::function<void(const Notification&)>;

  /// Keeps an observer registered; it hears nothing more once this is destroyed or reset, even
  /// when a delivery was already queued.
  class Observation {
   public:
    /// An empty observation that observes nothing.
    Observation() = default;
    /// @{
    /// Takes over `other`'s observer, leaving `other` empty; assigning first ends the observer this
    /// one held.
    Observation(Observation&&) noexcept = default;
    Observation& operator=(Observation&& other) noexcept;
    /// @}
    Observation(const Observation&) = delete;
    Observation& operator=(const Observation&) = delete;
    ~Observation() { reset(); }
    /// Unregisters the observer now (queued deliveries included); the observation is then empty.
    void reset();
    /// True while an observer is registered through this observation.
    explicit operator bool() const { return entry_ != nullptr; }

   private:
    friend class NotificationCenter;
    struct Entry;
    Observation(std::shared_ptr<Entry> entry, std::weak_ptr<NotificationCenter> center);
    std::shared_ptr<Entry> entry_;
    std::weak_ptr<NotificationCenter> center_;
  };

  /// A new center without observers; the only way to make one.
  static std::shared_ptr<NotificationCenter> make() { return std::shared_ptr<NotificationCenter>(new NotificationCenter); }

  /// Observes `name`. With a queue the observer runs there; without one it runs on the posting
  /// thread before `post` returns.
  [[nodiscard]] Observation addObserver(std::string name, std::shared_ptr<Executor> queue, Observer observer);
  /// Delivers to the observers of the notification's name, in the order they were added.
  void post(const Notification& notification);

 private:
  NotificationCenter() = default;
  void remove(const Observation::Entry* entry);

  std::mutex mutex_;
  std::vector<std::shared_ptr<Observation::Entry>> entries_;
};

}  // namespace velora
