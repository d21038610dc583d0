// Maintenance tickets: managers, their forms, the tickets, and a new ticket uploaded with its photo
// and voice note.

#include <atomic>

#include <velora/core/Orvane.hpp>
#include <velora/tickets/Tickets.hpp>

#include "core/Operation.hpp"
#include "core/Query.hpp"

namespace velora {
namespace {

struct GetTicketManagerTypes {
  static constexpr OperationInfo info{"getTicketManagerTypes", "GET", "/api/ticket/manager/types"};
  using Reply = std::vector<TicketManagerType>;
  VELORA_FIELDS(GetTicketManagerTypes);
};
VELORA_REGISTER_OPERATION(GetTicketManagerTypes);

struct GetTicketForm {
  TicketManagerType manager = TicketManagerType::INTERNAL;
  static constexpr OperationInfo info{"getTicketForm", "GET", "/api/ticket/form/{manager}"};
  using Reply = std::vector<FormTicket>;
  std::string path() const { return "/api/ticket/form/" + std::string(rawValue(manager)); }
  VELORA_FIELDS(GetTicketForm, manager);
};
VELORA_REGISTER_OPERATION(GetTicketForm);

/// The form a ticket was filed with, under its manager's form path.
struct GetTicketFormOfTicket {
  TicketManagerType manager = TicketManagerType::INTERNAL;
  std::string id;
  static constexpr OperationInfo info{"getTicketFormOfTicket", "GET", "/api/ticket/form/{manager}/{id}"};
  using Reply = std::vector<FormTicket>;
  std::string path() const { return "/api/ticket/form/" + std::string(rawValue(manager)) + "/" + id; }
  VELORA_FIELDS(GetTicketFormOfTicket, manager, id);
};
VELORA_REGISTER_OPERATION(GetTicketFormOfTicket);

struct UpdateTicketForm {
  std::vector<FormTicket> form;
  TicketManagerType manager = TicketManagerType::INTERNAL;
  static constexpr OperationInfo info{"updateTicketForm", "POST", "/api/ticket/form/{manager}"};
  using Reply = std::vector<FormTicket>;
  std::string path() const { return "/api/ticket/form/" + std::string(rawValue(manager)); }
  const std::vector<FormTicket>& body(const Orvane&) const { return form; }
  VELORA_FIELDS(UpdateTicketForm, form, manager);
};
VELORA_REGISTER_OPERATION(UpdateTicketForm);

struct GetTickets {
  static constexpr OperationInfo info{"getTickets", "GET", "/api/ticket"};
  using Reply = std::vector<Ticket>;
  VELORA_FIELDS(GetTickets);
};
VELORA_REGISTER_OPERATION(GetTickets);

struct GetMyTickets {
  static constexpr OperationInfo info{"getMyTickets", "GET", "/api/ticket/my"};
  using Reply = std::vector<Ticket>;
  VELORA_FIELDS(GetMyTickets);
};
VELORA_REGISTER_OPERATION(GetMyTickets);

/// Reading and deleting a ticket differ only in their method.
template <const OperationInfo& Info>
struct TicketById {
  std::string id;
  static constexpr OperationInfo info = Info;
  using Reply = Ticket;
  std::string path() const { return "/api/ticket/" + id; }
  VELORA_FIELDS(TicketById, id);
};
constexpr OperationInfo kGetTicket{"getTicket", "GET", "/api/ticket/{id}"};
constexpr OperationInfo kDeleteTicket{"deleteTicket", "DELETE", "/api/ticket/{id}"};
using GetTicket = TicketById<kGetTicket>;
using DeleteTicket = TicketById<kDeleteTicket>;
VELORA_REGISTER_OPERATION(GetTicket);
VELORA_REGISTER_OPERATION(DeleteTicket);

struct SaveTicket {
  SaveTicketRequest request;
  TicketManagerType manager = TicketManagerType::INTERNAL;
  UploadProgress progress;
  static constexpr OperationInfo info{"saveTicket", "POST", "/api/ticket/save/{manager}"};
  using Reply = std::vector<FormTicket>;
  std::string path() const { return "/api/ticket/save/" + std::string(rawValue(manager)); }
  void finishRequest(HttpRequest& http) && {
    auto data = std::move(request).formData();
    http.headers.set("Content-Type", "multipart/form-data; boundary=" + data.boundary);
    http.headers.set("Content-Length", std::to_string(data.body.size()));
    http.body = std::move(data.body);
    http.uploadProgress = std::move(progress);
  }
  VELORA_FIELDS(SaveTicket, request, manager, VELORA_NOT_CODED(progress));
};
VELORA_REGISTER_OPERATION(SaveTicket);

bool isUnknownManager(const TicketManagerType& type) { return type == TicketManagerType::UNKNOWN; }

/// Progress told on the main queue. While one report waits there, later ones only update the
/// figures it will show, so a fast upload cannot flood the queue.
UploadProgress progressOnMainQueue(const std::shared_ptr<MainQueue>& queue, UploadProgress progress) {
  if (!progress) return {};
  struct Reports {
    explicit Reports(UploadProgress p) : progress(std::move(p)) {}
    UploadProgress progress;
    std::atomic<std::uint64_t> sent{0};
    std::atomic<std::uint64_t> total{0};
    std::atomic<bool> waiting{false};
  };
  auto reports = std::make_shared<Reports>(std::move(progress));
  return [queue, reports](std::uint64_t sent, std::uint64_t total) {
    reports->total.store(total, std::memory_order_relaxed);
    reports->sent.store(sent, std::memory_order_release);
    if (reports->waiting.exchange(true, std::memory_order_acq_rel)) return;
    queue->post([reports] {
      reports->waiting.store(false, std::memory_order_release);
      reports->progress(reports->sent.load(std::memory_order_acquire), reports->total.load(std::memory_order_relaxed));
    });
  };
}

}  // namespace

void Orvane::getTicketManagerTypes(ResponseCallback callback) { call(GetTicketManagerTypes{}, std::move(callback)); }
Task<std::vector<TicketManagerType>> Orvane::getTicketManagerTypes(bool filterUnknownValues) {
  return detail::keepingKnown(call(GetTicketManagerTypes{}), filterUnknownValues, &isUnknownManager);
}

void Orvane::getTicketForm(TicketManagerType manager, ResponseCallback callback) {
  call(GetTicketForm{manager}, std::move(callback));
}
Task<std::vector<FormTicket>> Orvane::getTicketForm(TicketManagerType manager) { return call(GetTicketForm{manager}); }

void Orvane::getTicketForm(TicketManagerType manager, std::string id, ResponseCallback callback) {
  call(GetTicketFormOfTicket{manager, std::move(id)}, std::move(callback));
}
Task<std::vector<FormTicket>> Orvane::getTicketForm(TicketManagerType manager, std::string id) {
  return call(GetTicketFormOfTicket{manager, std::move(id)});
}

void Orvane::updateTicketForm(std::vector<FormTicket> form, TicketManagerType manager, ResponseCallback callback) {
  call(UpdateTicketForm{std::move(form), manager}, std::move(callback));
}
Task<std::vector<FormTicket>> Orvane::updateTicketForm(std::vector<FormTicket> form, TicketManagerType manager) {
  return call(UpdateTicketForm{std::move(form), manager});
}

void Orvane::getTickets(ResponseCallback callback) { call(GetTickets{}, std::move(callback)); }
Task<std::vector<Ticket>> Orvane::getTickets() { return call(GetTickets{}); }

void Orvane::getMyTickets(ResponseCallback callback) { call(GetMyTickets{}, std::move(callback)); }
Task<std::vector<Ticket>> Orvane::getMyTickets() { return call(GetMyTickets{}); }

void Orvane::getTicket(std::string id, ResponseCallback callback) { call(GetTicket{std::move(id)}, std::move(callback)); }
Task<Ticket> Orvane::getTicket(std::string id) { return call(GetTicket{std::move(id)}); }

void Orvane::deleteTicket(std::string id, ResponseCallback callback) { call(DeleteTicket{std::move(id)}, std::move(callback)); }
Task<Ticket> Orvane::deleteTicket(std::string id) { return call(DeleteTicket{std::move(id)}); }

void Orvane::saveTicket(SaveTicketRequest request, TicketManagerType manager, ResponseCallback callback,
                        UploadProgress onProgress) {
  call(SaveTicket{std::move(request), manager, progressOnMainQueue(platform().mainQueue, std::move(onProgress))}, std::move(callback));
}
Task<std::vector<FormTicket>> Orvane::saveTicket(SaveTicketRequest request, TicketManagerType manager, UploadProgress onProgress) {
  return call(SaveTicket{std::move(request), manager, progressOnMainQueue(platform().mainQueue, std::move(onProgress))});
}

}  // namespace velora
