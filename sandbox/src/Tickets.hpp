#pragma once
// The maintenance tickets behind the ticket routes: each manager's form, which the choice of one
// of its selects extends, and the tickets filed with those forms together with their photo and
// voice note. Kept in memory per sandbox.

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "DemoData.hpp"
#include "SandboxInternal.hpp"

namespace velora::sandbox::detail {

/// The files sent with a ticket, as uploaded.
struct TicketFiles {
  std::optional<std::string> image;  // image/jpeg
  std::optional<std::string> sound;  // audio/x-aac
};

class Tickets {
 public:
  /// Files the seeded tickets. std::runtime_error naming a seed whose values do not fit its
  /// manager's form.
  explicit Tickets(const DemoData& data);

  /// RequestError 404 for a manager tickets cannot be filed with (unknown, or listed without a form).
  const TicketForm& formOf(const std::string& manager) const;
  /// The form of `manager` as clients see it, without values.
  nlohmann::json blankForm(const std::string& manager) const;
  /// The form of `manager` for `posted`, a FormTicket array: the choice of the deciding select
  /// adds its fields after it, and the values posted for fields the form has are kept.
  /// RequestError 404 as formOf, then 400 for anything but such an array or for a choice a select
  /// does not have.
  nlohmann::json recompute(const std::string& manager, const nlohmann::json& posted) const;

  struct Filed {
    nlohmann::json ticket;
    nlohmann::json form;  // as recompute fills it, with the paths of the stored files
  };
  /// Files a ticket of `user` from `posted` as recompute reads it. RequestError 400 besides
  /// recompute's for a mandatory field without a value and for a file the form has no field for.
  Filed submit(const std::string& user, const std::string& manager, const nlohmann::json& posted, TicketFiles files);

  /// Every ticket, or only `user`'s, newest first.
  nlohmann::json list(const std::optional<std::string>& user) const;
  /// RequestError 404 for an unknown id.
  nlohmann::json find(const std::string& id) const;
  /// Returns the deleted ticket. RequestError 404 for an unknown id, 403 for another user's ticket.
  nlohmann::json remove(const std::string& id, const std::string& user);
  /// The form `user`'s ticket was filed with. RequestError 404 for an unknown ticket, another
  /// user's, or one filed with another manager.
  nlohmann::json filedForm(const std::string& manager, const std::string& id, const std::string& user) const;
  /// The stored bytes of the ticket's "image" or "sound"; RequestError 404 when there are none.
  std::string attachment(const std::string& id, const std::string& kind) const;

 private:
  struct Stored {
    std::string user;
    nlohmann::json ticket;
    nlohmann::json form;
    TicketFiles files;
    std::uint64_t sequence = 0;  // filing order, for tickets filed in the same instant
  };
  using Values = std::map<std::string, std::string>;

  // Need mutex_ held.
  std::string newId();
  Filed store(const std::string& id, const std::string& user, const std::string& manager, const Values& values,
              TicketFiles files, const std::string& status, double created, double updated);

  const DemoData& data_;
  mutable std::mutex mutex_;
  std::map<std::string, Stored> tickets_;  // by ticket id
  std::uint64_t sequence_ = 0;
  int nextNumber_ = 1;
};

}  // namespace velora::sandbox::detail
