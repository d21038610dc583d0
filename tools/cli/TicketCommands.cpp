// tickets managers|form|list|mine|show|delete|new: maintenance tickets, filed with an optional
// photo and voice note.

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>

#include <velora/tickets/Tickets.hpp>

#include "Command.hpp"
#include "Session.hpp"

namespace velora::cli {
namespace {

struct TicketOptions {
  std::string manager = "INTERNAL", id, photo, voice;
  std::vector<std::string> values;
  bool all = false;
};

TicketManagerType managerType(const std::string& text) {
  const auto type = enumFromRaw<TicketManagerType>(text);
  if (type == TicketManagerType::UNKNOWN) {
    throw UsageError("--manager must be " + enumerate({"INTERNAL", "IVIVA"}) + ", not '" + text + "'");
  }
  return type;
}

std::string timeText(double seconds) {
  const auto t = static_cast<std::time_t>(seconds);
  std::tm local{};
  localtime_r(&t, &local);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%d %H:%M", &local);
  return text;
}

std::string attachments(const Ticket& t) {
  std::vector<std::string> kinds;
  if (t.image) kinds.emplace_back("photo");
  if (t.sound) kinds.emplace_back("voice");
  return kinds.empty() ? "-" : enumerate(kinds, "and");
}

std::string describeTickets(const std::vector<Ticket>& tickets) {
  if (tickets.empty()) return "(no tickets)";
  std::vector<std::vector<std::string>> rows;
  for (const auto& t : tickets) {
    rows.push_back({t.ticketId, std::string(rawValue(t.manager)), t.status, timeText(t.creationTimestamp), attachments(t),
                    t.description});
  }
  return table({"ID", "MANAGER", "STATUS", "CREATED", "ATTACHED", "DESCRIPTION"}, rows);
}

std::string describeTicket(const Ticket& t) {
  std::vector<std::pair<std::string, std::string>> rows{
      {"ticket", t.ticketId},
      {"manager", std::string(rawValue(t.manager))},
      {"status", t.status},
      {"created", timeText(t.creationTimestamp)},
      {"description", t.description},
  };
  if (t.lastUpdateTimestamp) rows.emplace_back("updated", timeText(*t.lastUpdateTimestamp));
  if (t.resourceId) rows.emplace_back("resource", *t.resourceId);
  if (t.integrationId) rows.emplace_back("integration", *t.integrationId);
  if (t.managerInfo && t.managerInfo->problemType) rows.emplace_back("problem", *t.managerInfo->problemType);
  if (t.managerInfo && t.managerInfo->locationFullName) rows.emplace_back("location", *t.managerInfo->locationFullName);
  if (t.image) rows.emplace_back("photo", *t.image);
  if (t.sound) rows.emplace_back("voice", *t.sound);
  return fieldLines(rows);
}

std::string fieldValue(const FormTicket& field) {
  if (field.values) {
    for (const auto& choice : *field.values) {
      if (choice.selected) return choice.selectValueId;
    }
  }
  return field.value.value_or("-");
}

std::string describeForm(const std::vector<FormTicket>& form) {
  std::vector<std::vector<std::string>> rows;
  for (const auto& field : form) {
    std::string kind = field.formInputType;
    if (field.values) {
      std::vector<std::string> ids;
      for (const auto& choice : *field.values) ids.push_back(choice.selectValueId);
      kind += " (" + enumerate(ids) + ")";
    }
    rows.push_back({field.formAttribute, field.formName + (field.mandatory ? " *" : ""), kind, fieldValue(field)});
  }
  return table({"FIELD", "NAME", "KIND", "VALUE"}, rows);
}

/// Sets "FIELD=VALUE" on the form: a select takes one of its choice ids. True when a select
/// changed, which may change the form's other fields. Fields the form lacks go to `missing`.
bool fill(std::vector<FormTicket>& form, const std::vector<std::string>& values, std::vector<std::string>* missing) {
  bool selectChanged = false;
  for (const auto& text : values) {
    const auto equals = text.find('=');
    if (equals == std::string::npos || equals == 0) throw UsageError("a value must be FIELD=VALUE, not '" + text + "'");
    const std::string name = text.substr(0, equals), value = text.substr(equals + 1);
    const auto field = std::find_if(form.begin(), form.end(), [&](const FormTicket& f) { return f.formAttribute == name; });
    if (field == form.end()) {
      if (missing) missing->push_back(name);
      continue;
    }
    if (!field->values) {
      field->value = value;
      continue;
    }
    std::vector<std::string> ids;
    for (const auto& choice : *field->values) ids.push_back(choice.selectValueId);
    if (std::find(ids.begin(), ids.end(), value) == ids.end()) {
      throw UsageError(name + " must be " + enumerate(ids) + ", not '" + value + "'");
    }
    for (auto& choice : *field->values) choice.selected = choice.selectValueId == value;
    selectChanged = selectChanged || field->value != value;
    field->value = value;
  }
  return selectChanged;
}

std::vector<FormTicket> filledForm(Context& ctx, Orvane& orvane, TicketManagerType manager, const std::vector<std::string>& values) {
  auto form = ctx.await("Reading the form", orvane.getTicketForm(manager));
  if (fill(form, values, nullptr)) {
    // A select's choice may add fields: fill the form the server made of it.
    form = ctx.await("Updating the form", orvane.updateTicketForm(std::move(form), manager));
  }
  std::vector<std::string> missing;
  fill(form, values, &missing);
  if (!missing.empty()) {
    std::vector<std::string> known;
    for (const auto& f : form) known.push_back(f.formAttribute);
    throw UsageError("the form has no field " + enumerate(missing, "and") + "; its fields are " + enumerate(known, "and"));
  }
  return form;
}

/// The file's bytes; a missing or unreadable file stops the command before anything is sent.
Bytes readAttachment(const std::string& path, const char* option) {
  std::ifstream in(path, std::ios::binary);
  if (!in || std::filesystem::is_directory(path)) throw UsageError(std::string(option) + ": cannot read '" + path + "'");
  return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

bool looksLikeJpeg(const Bytes& b) { return b.size() >= 3 && b[0] == 0xFF && b[1] == 0xD8 && b[2] == 0xFF; }
/// An ADTS stream (the sync word with layer 0) or an ADIF header.
bool looksLikeAac(const Bytes& b) {
  return (b.size() >= 2 && b[0] == 0xFF && (b[1] & 0xF6) == 0xF0) || (b.size() >= 4 && b[0] == 'A' && b[1] == 'D' && b[2] == 'I' && b[3] == 'F');
}

/// "[=====>    ]  48%  9.6 of 20.0 MB" on a terminal's standard error while the body goes out.
UploadProgress progressBar() {
  if (!Spinner::wanted()) return {};
  return [](std::uint64_t sent, std::uint64_t total) {
    if (total == 0) return;
    constexpr int kWidth = 30;
    const double part = static_cast<double>(sent) / static_cast<double>(total);
    const int filled = static_cast<int>(part * kWidth);
    std::string bar = "[" + std::string(filled, '=') + (filled < kWidth ? ">" : "") + std::string(std::max(0, kWidth - filled - 1), ' ') + "]";
    char figures[64];
    std::snprintf(figures, sizeof figures, " %3d%%  %.1f of %.1f MB", static_cast<int>(part * 100), sent / 1e6, total / 1e6);
    writeStatus(bar + figures);
  };
}

void fileTicket(Context& ctx, const TicketOptions& o) {
  const auto manager = managerType(o.manager);
  SaveTicketRequest request;
  if (!o.photo.empty()) {
    request.image = readAttachment(o.photo, "--photo");
    if (!looksLikeJpeg(*request.image)) writeDiagnostic("velora: warning: " + o.photo + " is not a JPEG photo; it is sent as image/jpeg anyway");
  }
  if (!o.voice.empty()) {
    request.sound = readAttachment(o.voice, "--voice");
    if (!looksLikeAac(*request.sound)) writeDiagnostic("velora: warning: " + o.voice + " is not an AAC recording; it is sent as audio/x-aac anyway");
  }
  Orvane& orvane = connectWithSession(ctx);
  request.form = filledForm(ctx, orvane, manager, o.values);

  auto bar = request.image || request.sound ? progressBar() : UploadProgress{};
  Context quiet = ctx;
  quiet.spinner = ctx.spinner && !bar;  // the bar takes the spinner's line
  const bool barShown = static_cast<bool>(bar);
  auto saved = quiet.await("Filing the ticket", orvane.saveTicket(std::move(request), manager, std::move(bar)));
  if (barShown) writeStatus("");

  // The reply is the filed form; the ticket is the caller's newest.
  auto mine = ctx.await("Reading your tickets", orvane.getMyTickets());
  const auto newest = std::max_element(mine.begin(), mine.end(), [](const Ticket& a, const Ticket& b) {
    return a.creationTimestamp < b.creationTimestamp;
  });
  if (ctx.out.json()) {
    ctx.out.printJson(AnyCodable::object({{"ticket", newest == mine.end() ? AnyCodable() : encode(*newest)}, {"form", encode(saved)}}));
  } else {
    ctx.out.printText((newest == mine.end() ? std::string("Filed") : "Filed " + newest->ticketId) + "\n" + describeForm(saved));
  }
}

}  // namespace

void addTicketCommands(CommandSet& commands) {
  CLI::App* group = commands.group("tickets", "Maintenance tickets");
  auto o = std::make_shared<TicketOptions>();

  commands.add(*group, "managers", "List the ticket managers", [o](Context& ctx) {
    const auto types = ctx.await("Reading managers", connectWithSession(ctx).getTicketManagerTypes(!o->all));
    ctx.out.show<std::vector<TicketManagerType>>(types, [](const std::vector<TicketManagerType>& list) {
      std::string text;
      for (const auto type : list) text.append(rawValue(type)).push_back('\n');
      return text.empty() ? std::string("(no managers)") : text;
    });
  })->add_flag("--all", o->all, "Keep managers this client does not know (as UNKNOWN)");

  CLI::App* form = commands.add(*group, "form", "Show a manager's ticket form; FIELD=VALUE shows it filled in", [o](Context& ctx) {
    Orvane& orvane = connectWithSession(ctx);
    const auto manager = managerType(o->manager);
    const auto fields = o->id.empty() ? filledForm(ctx, orvane, manager, o->values)
                                      : ctx.await("Reading the form", orvane.getTicketForm(manager, o->id));
    ctx.out.show<std::vector<FormTicket>>(fields, describeForm);
  });
  form->add_option("--manager", o->manager, "INTERNAL or IVIVA (default INTERNAL)");
  form->add_option("--ticket", o->id, "The form a ticket was filed with");
  form->add_option("VALUE", o->values, "FIELD=VALUE; a select takes a choice id");

  commands.add(*group, "list", "List every ticket you may see", [](Context& ctx) {
    ctx.out.show<std::vector<Ticket>>(ctx.await("Reading tickets", connectWithSession(ctx).getTickets()), describeTickets);
  });
  commands.add(*group, "mine", "List your tickets", [](Context& ctx) {
    ctx.out.show<std::vector<Ticket>>(ctx.await("Reading tickets", connectWithSession(ctx).getMyTickets()), describeTickets);
  });
  commands.add(*group, "show", "Show a ticket", [o](Context& ctx) {
    ctx.out.show<Ticket>(ctx.await("Reading the ticket", connectWithSession(ctx).getTicket(o->id)), describeTicket);
  })->add_option("ID", o->id, "Ticket id")->required();
  commands.add(*group, "delete", "Delete one of your tickets", [o](Context& ctx) {
    const auto deleted = ctx.await("Deleting", connectWithSession(ctx).deleteTicket(o->id));
    ctx.out.show<Ticket>(deleted, [](const Ticket& t) { return "Deleted " + t.ticketId + ": " + t.description; });
  })->add_option("ID", o->id, "Ticket id")->required();

  CLI::App* file = commands.add(*group, "new", "File a ticket, e.g. 'tickets new description=\"Lamp out\" --photo lamp.jpg'",
                                [o](Context& ctx) { fileTicket(ctx, *o); });
  file->add_option("--manager", o->manager, "INTERNAL or IVIVA (default INTERNAL)");
  file->add_option("--photo", o->photo, "A JPEG photo to attach");
  file->add_option("--voice", o->voice, "An AAC voice note to attach");
  file->add_option("VALUE", o->values, "FIELD=VALUE per form field (see tickets form)");
}

}  // namespace velora::cli
