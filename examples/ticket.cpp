// ticket: files a maintenance ticket with a photo on the platform's own ticket manager, then reads
// the photo back from the filed ticket.
//
//   ticket [URL] [PHOTO]      PHOTO: a JPEG file (default: data/lamp.jpg of the examples)
//
// Form: coroutines. main() blocks on one velora::Task with get(); inside it, co_await. Each
// operation's task is made on one line and awaited on the next: g++ 12 can destroy temporaries
// built inside a co_await expression twice.

#include <algorithm>
#include <fstream>
#include <iostream>
#include <iterator>

#include "Connect.hpp"

namespace {

using velora::FormTicket;
using velora::TicketManagerType;

/// Fills in one field: a text field takes the value, a select marks the choice of that id.
void fill(std::vector<FormTicket>& form, const std::string& attribute, const std::string& value) {
  const auto field = std::find_if(form.begin(), form.end(), [&](const FormTicket& f) { return f.formAttribute == attribute; });
  if (field == form.end()) throw std::runtime_error("the ticket form has no field '" + attribute + "'");
  if (field->values) {
    for (auto& choice : *field->values) choice.selected = choice.selectValueId == value;
  }
  field->value = value;
}

velora::Bytes readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error("cannot read the photo " + path);
  return velora::Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

velora::Task<int> run(velora::Orvane& orvane, std::string photoPath) {
  auto login = orvane.backgroundLogin(example::user(), example::password(), -1);
  co_await login;

  // Each manager has a form of its own; choosing a category may add fields, so the form goes back
  // to the platform once the choice is made, and comes back with them.
  auto blank = orvane.getTicketForm(TicketManagerType::INTERNAL);
  std::vector<FormTicket> form = co_await blank;
  fill(form, "description", "Desk lamp flickers");
  fill(form, "category", "electrical");
  auto update = orvane.updateTicketForm(form, TicketManagerType::INTERNAL);
  form = co_await update;
  fill(form, "circuit", "B2");

  const velora::Bytes photo = readFile(photoPath);
  velora::SaveTicketRequest request{photo, std::nullopt, form};
  auto save = orvane.saveTicket(std::move(request), TicketManagerType::INTERNAL, [](std::uint64_t sent, std::uint64_t total) {
    std::cout << "  uploaded " << sent << " of " << total << " bytes\n";  // on the main queue
  });
  co_await save;

  // The platform answers a save with the filed form; the new ticket is the user's newest.
  auto mine = orvane.getMyTickets();
  const std::vector<velora::Ticket> tickets = co_await mine;
  const auto newest = std::max_element(tickets.begin(), tickets.end(), [](const auto& a, const auto& b) {
    return a.creationTimestamp < b.creationTimestamp;
  });
  if (newest == tickets.end() || !newest->image) co_return example::fail("ticket", "the filed ticket has no photo");
  std::cout << "filed " << newest->ticketId << " (" << newest->status << "): " << newest->description << '\n';

  auto download = orvane.fetchResource(*newest->image);
  const velora::Bytes stored = co_await download;
  if (stored != photo) co_return example::fail("ticket", "the photo read back differs from the one sent");
  std::cout << "ticket ok: " << newest->ticketId << " filed, its " << stored.size() << "-byte photo reads back unchanged\n";
  co_return 0;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  try {
    velora::Orvane& orvane = example::connect(example::platform("ticket"), example::platformUrl(args));
    example::forgetStoredSession(orvane);
    return run(orvane, args.empty() ? VELORA_EXAMPLE_PHOTO : args[0]).get();
  } catch (...) {
    return example::fail("ticket", example::describe(std::current_exception()));
  }
}
