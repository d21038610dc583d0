#include <velora/widgets/ORVSBaseModel.hpp>

#include <mutex>
#include <utility>

namespace velora {

struct ORVSBaseModel::Subscription::Observers {
  std::mutex mutex;
  std::uint64_t nextId = 1;
  std::vector<std::pair<std::uint64_t, std::shared_ptr<const Observer>>> entries;
};

ORVSBaseModel::Subscription::Subscription(Subscription&& other) noexcept
    : observers_(std::move(other.observers_)), id_(std::exchange(other.id_, 0)) {}

ORVSBaseModel::Subscription& ORVSBaseModel::Subscription::operator=(Subscription&& other) noexcept {
  if (this != &other) {
    cancel();
    observers_ = std::move(other.observers_);
    id_ = std::exchange(other.id_, 0);
  }
  return *this;
}

void ORVSBaseModel::Subscription::cancel() noexcept {
  if (auto observers = observers_.lock()) {
    std::shared_ptr<const Observer> removed;  // destroyed after the lock is released
    {
      std::lock_guard lock(observers->mutex);
      auto& entries = observers->entries;
      for (auto it = entries.begin(); it != entries.end(); ++it) {
        if (it->first == id_) {
          removed = std::move(it->second);
          entries.erase(it);
          break;
        }
      }
    }
  }
  observers_.reset();
  id_ = 0;
}

ORVSBaseModel::ORVSBaseModel(ORVSComponentType kind) : type(kind), observers_(std::make_shared<Observers>()) {}

// Copies and moves carry field values only: observers belong to the instance they subscribed to.
ORVSBaseModel::ORVSBaseModel(const ORVSBaseModel& other)
    : type(other.type),
      componentId(other.componentId),
      enabled(other.enabled),
      name(other.name),
      i18n(other.i18n),
      value(other.value),
      observers_(std::make_shared<Observers>()) {}

ORVSBaseModel::ORVSBaseModel(ORVSBaseModel&& other) noexcept
    : type(other.type),
      componentId(std::move(other.componentId)),
      enabled(other.enabled),
      name(std::move(other.name)),
      i18n(std::move(other.i18n)),
      value(std::move(other.value)),
      observers_(std::make_shared<Observers>()) {}

ORVSBaseModel& ORVSBaseModel::operator=(const ORVSBaseModel& other) {
  type = other.type;
  componentId = other.componentId;
  enabled = other.enabled;
  name = other.name;
  i18n = other.i18n;
  value = other.value;
  return *this;
}

ORVSBaseModel& ORVSBaseModel::operator=(ORVSBaseModel&& other) noexcept {
  type = other.type;
  componentId = std::move(other.componentId);
  enabled = other.enabled;
  name = std::move(other.name);
  i18n = std::move(other.i18n);
  value = std::move(other.value);
  return *this;
}

ORVSBaseModel::~ORVSBaseModel() = default;

ORVSBaseModel::Subscription ORVSBaseModel::observe(Observer observer) {
  auto shared = std::make_shared<const Observer>(std::move(observer));
  std::lock_guard lock(observers_->mutex);
  const std::uint64_t id = observers_->nextId++;
  observers_->entries.emplace_back(id, std::move(shared));
  return Subscription(observers_, id);
}

void ORVSBaseModel::notifyChanged(std::string_view fieldName) const {
  // Call outside the lock so that an observer may unsubscribe, subscribe or set fields.
  std::vector<std::shared_ptr<const Observer>> current;
  {
    std::lock_guard lock(observers_->mutex);
    if (observers_->entries.empty()) return;
    current.reserve(observers_->entries.size());
    for (const auto& entry : observers_->entries) current.push_back(entry.second);
  }
  for (const auto& observer : current) (*observer)(fieldName);
}

}  // namespace velora
