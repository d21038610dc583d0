#pragma once
// Maintenance tickets: the ticket managers (the platform's own or an external facility-management
// system), the form a manager asks for, the tickets themselves, and a new ticket with an optional
// photo and voice note sent as one multipart upload.
//
// Every `id` below is made when the record is created or decoded, so that a list can tell its rows
// apart; it never travels, and records with the same coded fields are equal whatever their id.

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <velora/core/AnyCodable.hpp>
#include <velora/core/Record.hpp>
#include <velora/map/MapPositionModel.hpp>
#include <velora/platform/HttpTransport.hpp>

namespace velora {

/// Unknown manager names read as UNKNOWN.
VELORA_ENUM(TicketManagerType, INTERNAL, IVIVA, UNKNOWN);
/// The kinds of field a manager's form has; unknown kinds read as `unknown`.
VELORA_ENUM(FormInputType, text, resource, image, sound, select, unknown);

/// Details an external manager adds to its tickets.
struct TicketManagerInfo {
  std::optional<int> requesterObjectKey;
  std::optional<std::string> requesterObjectType;
  std::optional<int> problemTypeKey;
  std::optional<std::string> problemType;
  std::optional<int> serviceCategoryKey;
  std::optional<std::string> serviceCategoryName;
  std::optional<int> locationKey;
  std::optional<std::string> locationFullName;
  std::optional<int> priorityKey;

  VELORA_RECORD(TicketManagerInfo, requesterObjectKey, requesterObjectType, problemTypeKey, problemType,
                serviceCategoryKey, serviceCategoryName, locationKey, locationFullName, priorityKey);
};

struct Ticket {
  std::string id = detail::makeUUID();
  std::string ticketId;
  std::string description;
  /// Seconds since 1970.
  double creationTimestamp = 0;
  TicketManagerType manager = TicketManagerType::UNKNOWN;
  std::string status;
  std::optional<double> lastUpdateTimestamp;
  std::optional<std::string> resourceId;
  std::optional<MapPositionModel> position;
  std::optional<std::string> integrationId;
  std::optional<TicketManagerInfo> managerInfo;
  /// Where the photo can be fetched, as the server names it.
  std::optional<std::string> image;
  /// Where the voice note can be fetched, as the server names it.
  std::optional<std::string> sound;

  VELORA_FIELDS(Ticket, VELORA_NOT_CODED(id), ticketId, description, creationTimestamp, manager, status, lastUpdateTimestamp,
                resourceId, position, integrationId, managerInfo, image, sound);
  friend bool operator==(const Ticket& a, const Ticket& b) { return encode(a) == encode(b); }
};

/// One choice of a select field.
struct FormTicketSelectValue {
  std::string id = detail::makeUUID();
  std::string selectValueId;
  std::string name;
  bool selected = false;

  VELORA_FIELDS(FormTicketSelectValue, VELORA_NOT_CODED(id), selectValueId, name, selected);
  friend bool operator==(const FormTicketSelectValue& a, const FormTicketSelectValue& b) { return encode(a) == encode(b); }
};

/// One field of a manager's ticket form. Filling it in means setting `value` (or marking one of
/// `values` selected) and sending the whole form back.
struct FormTicket {
  std::string id = detail::makeUUID();
  std::string formName;
  /// The localisation key of `formName`.
  std::optional<std::string> formNameI18n;
  /// The attribute the server files the value under.
  std::string formAttribute;
  /// A FormInputType raw value, kept as sent.
  std::string formInputType;
  std::optional<std::string> value;
  std::optional<std::vector<FormTicketSelectValue>> values;
  bool mandatory = false;

  FormInputType inputType() const { return enumFromRaw<FormInputType>(formInputType); }

  VELORA_FIELDS(FormTicket, VELORA_NOT_CODED(id), formName, formNameI18n, formAttribute, formInputType, value, values,
                mandatory);
  friend bool operator==(const FormTicket& a, const FormTicket& b) { return encode(a) == encode(b); }
};

/// A multipart/form-data body and the boundary that separates its parts.
struct MultipartFormData {
  HttpBody body;
  std::string boundary;
};

/// A new ticket: the filled form and, optionally, a JPEG photo and an AAC voice note.
struct SaveTicketRequest {
  std::optional<Bytes> image;
  std::optional<Bytes> sound;
  std::vector<FormTicket> form;

  /// Where the boundary and the file names come from; a fresh upper-case UUID each time.
  using UUIDSource = std::function<std::string()>;

  /// The upload body: a part per file ("image" as <UUID>.jpg, "sound" as <UUID>.aac), then the form
  /// as JSON (an empty part when the form cannot be encoded), then the closing delimiter. The rvalue
  /// form moves the photo and the voice note into the body instead of copying them.
  MultipartFormData formData(const UUIDSource& uuid = detail::makeUUID) const&;
  MultipartFormData formData(const UUIDSource& uuid = detail::makeUUID) &&;

  VELORA_RECORD(SaveTicketRequest, image, sound, form);
};

}  // namespace velora
