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
  /// @{
  /// The external system's own keys and names for the requester, the problem type, the service
  /// category, the location and the priority, as it sent them; absent keys stay empty.
  std::optional<int> requesterObjectKey;
  std::optional<std::string> requesterObjectType;
  std::optional<int> problemTypeKey;
  std::optional<std::string> problemType;
  std::optional<int> serviceCategoryKey;
  std::optional<std::string> serviceCategoryName;
  std::optional<int> locationKey;
  std::optional<std::string> locationFullName;
  std::optional<int> priorityKey;
  /// @}

  VELORA_RECORD(TicketManagerInfo, requesterObjectKey, requesterObjectType, problemTypeKey, problemType,
                serviceCategoryKey, serviceCategoryName, locationKey, locationFullName, priorityKey);
};

/// A maintenance ticket as the platform lists it.
struct Ticket {
  /// Made locally for telling list rows apart (see above); never sent, never compared.
  std::string id = detail::makeUUID();
  /// The platform's identifier: what getTicket and deleteTicket take.
  std::string ticketId;
  /// What the reporter wrote about the problem.
  std::string description;
  /// Seconds since 1970.
  double creationTimestamp = 0;
  /// The manager the ticket was filed with; UNKNOWN for a name this library does not know.
  TicketManagerType manager = TicketManagerType::UNKNOWN;
  /// The ticket's state in the manager's own words: free text, not an enumeration.
  std::string status;
  /// The last change, in seconds since 1970; absent when the server sends none.
  std::optional<double> lastUpdateTimestamp;
  /// The resource picked in the form's resource field; absent when the form had none.
  std::optional<std::string> resourceId;
  /// Where that resource is on the map; absent when it has no position.
  std::optional<MapPositionModel> position;
  /// The ticket's identifier in an external manager's system; absent for INTERNAL tickets.
  std::optional<std::string> integrationId;
  /// What an external manager adds; absent for INTERNAL tickets.
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
  /// Made locally for telling list rows apart (see above); never sent, never compared.
  std::string id = detail::makeUUID();
  /// The server's identifier of the choice.
  std::string selectValueId;
  /// The choice's label.
  std::string name;
  /// Whether this choice is picked; setting it is how a select field is filled in.
  bool selected = false;

  VELORA_FIELDS(FormTicketSelectValue, VELORA_NOT_CODED(id), selectValueId, name, selected);
  friend bool operator==(const FormTicketSelectValue& a, const FormTicketSelectValue& b) { return encode(a) == encode(b); }
};

/// One field of a manager's ticket form. Filling it in means setting `value` (or marking one of
/// `values` selected) and sending the whole form back.
struct FormTicket {
  /// Made locally for telling list rows apart (see above); never sent, never compared.
  std::string id = detail::makeUUID();
  /// The field's label.
  std::string formName;
  /// The localisation key of `formName`.
  std::optional<std::string> formNameI18n;
  /// The attribute the server files the value under.
  std::string formAttribute;
  /// A FormInputType raw value, kept as sent.
  std::string formInputType;
  /// The field's value as text; what filling in a non-select field sets. Absent while empty.
  std::optional<std::string> value;
  /// The choices of a select field; absent for the other kinds.
  std::optional<std::vector<FormTicketSelectValue>> values;
  /// Whether the server refuses the form without a value here.
  bool mandatory = false;

  /// formInputType as the enumeration; `unknown` for a kind this library does not know.
  FormInputType inputType() const { return enumFromRaw<FormInputType>(formInputType); }

  VELORA_FIELDS(FormTicket, VELORA_NOT_CODED(id), formName, formNameI18n, formAttribute, formInputType, value, values,
                mandatory);
  friend bool operator==(const FormTicket& a, const FormTicket& b) { return encode(a) == encode(b); }
};

/// A multipart/form-data body and the boundary that separates its parts.
struct MultipartFormData {
  /// The whole body; its file parts refer to the photo and voice-note bytes rather than copy them.
  HttpBody body;
  /// The separator of the parts, for the "multipart/form-data; boundary=" content type.
  std::string boundary;
};

/// A new ticket: the filled form and, optionally, a JPEG photo and an AAC voice note.
struct SaveTicketRequest {
  std::optional<Bytes> image;  ///< The photo's JPEG bytes; no image part when absent.
  std::optional<Bytes> sound;  ///< The voice note's AAC bytes; no sound part when absent.
  std::vector<FormTicket> form;  ///< The manager's form with its values filled in.

  /// Where the boundary and the file names come from; a fresh upper-case UUID each time.
  using UUIDSource = std::function<std::string()>;

  /// @{
  /// The upload body: a part per file ("image" as `<UUID>.jpg`, "sound" as `<UUID>.aac`), then the
  /// form as JSON, then the closing delimiter; the layout is the one the platform's server expects,
  /// byte for byte. The rvalue form moves the photo and the voice note into the body instead of
  /// copying them.
  MultipartFormData formData(const UUIDSource& uuid = detail::makeUUID) const&;
  MultipartFormData formData(const UUIDSource& uuid = detail::makeUUID) &&;
  /// @}

  VELORA_RECORD(SaveTicketRequest, image, sound, form);
};

}  // namespace velora
