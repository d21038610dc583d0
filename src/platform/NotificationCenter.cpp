#include <velora/platform/NotificationCenter.hpp>

#include <algorithm>
#include <atomic>

namespace velora {

struct NotificationCenter::Observation::Entry {
  std::string name;
  std::shared_ptr<Executor> queue;
  Observer observer;
  // Cleared on removal so that a delivery already queued does not run.
  std::atomic<bool> active{true};
};

NotificationCenter::Observation::Observation(std::shared_ptr<Entry> entry, std::weak_ptr<NotificationCenter> center)
    : entry_(std::move(entry)), center_(std::move(center)) {}

NotificationCenter::Observation& NotificationCenter::Observation::operator=(Observation&& other) noexcept {
  if (this != &other) {
    reset();
    entry_ = std::move(other.entry_);
    center_ = std::move(other.center_);
  }
  return *this;
}

void NotificationCenter::Observation::reset() {
  if (!entry_) return;
  entry_->active = false;
  if (auto center = center_.lock()) center->remove(entry_.get());
  entry_.reset();
}

NotificationCenter::Observation NotificationCenter::addObserver(std::string name, std::shared_ptr<Executor> queue,
                                                                Observer observer) {
  auto entry = std::make_shared<Observation::Entry>();
  entry->name = std::move(name);
  entry->queue = std::move(queue);
  entry->observer = std::move(observer);
  {
    std::lock_guard lock(mutex_);
    entries_.push_back(entry);
  }
  return Observation(std::move(entry), weak_from_this());
}

void NotificationCenter::remove(const Observation::Entry* entry) {
  std::lock_guard lock(mutex_);
  std::erase_if(entries_, [&](const auto& e) { return e.get() == entry; });
}

void NotificationCenter::post(const Notification& notification) {
  std::vector<std::shared_ptr<Observation::Entry>> observers;
  {
    std::lock_guard lock(mutex_);
    for (const auto& e : entries_) {
      if (e->name == notification.name) observers.push_back(e);
    }
  }
  for (auto& entry : observers) {
    if (!entry->queue) {
      if (entry->active) entry->observer(notification);
      continue;
    }
    entry->queue->post([entry, notification] {
      if (entry->active) entry->observer(notification);
    });
  }
}

}  // namespace velora
