#pragma once
// Orvane: the library's single entry object. Configure it once with `setupSDK`, then call the
// operations of `Orvane::shared()`. Each REST operation comes twice: a callback form that answers
// exactly once on the main queue with a ResponseMessage (code 200 and the decoded record in
// `payload` on success), and an awaitable form returning the record or throwing APIError.
//
// The operations are grouped by area below. Their records live in each area's headers (include
// <velora/velora.hpp> for all of them); each area implements its part of the facade in
// src/<area>/Orvane+<Area>.cpp, where every REST operation is declared once.

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <velora/core/APIError.hpp>
#include <velora/core/AnyCodable.hpp>
#include <velora/core/Date.hpp>
#include <velora/core/EnvironmentModel.hpp>
#include <velora/core/HttpSession.hpp>
#include <velora/core/PlatformError.hpp>
#include <velora/core/ResponseMessage.hpp>
#include <velora/core/SessionRenewer.hpp>
#include <velora/core/Task.hpp>
#include <velora/platform/Platform.hpp>
#include <velora/semaphore/AsyncSemaphore.hpp>
#include <velora/sse/EventSource.hpp>
#include <velora/sse/StreamReconnectPolicy.hpp>

namespace velora {

// Records of the areas, declared in their own headers.
struct NetworkResponseLogin;
struct NetworkResponseConfiguration;
struct SdkImage;
struct KeyCloakParameters;
struct KeyCloakAuthResponse;
struct BackgroundLoginParameters;
class KeycloakManager;
class KeychainHelper;
struct ItemControllable;
struct ItemControllableFilter;
struct ItemCurrentValue;
class ItemControl;
struct ORVRegion;
struct DiagnosticCompleteResponse;
struct SSEWidgetEventChange;
struct SSESubscriptionRequest;
enum class KeycloakLoginMode;
enum class SSEStreamTypeEvent;
enum class SSEWidgetEventsType;
class SSEManager;
struct Resource;
struct BookFilterModel;
struct SectionFilter;
struct Filter;
struct FilterElement;
struct ScheduleRequest;
struct ScheduleElement;
struct BookingUserInvite;
struct ResourceAgendaRequest;
struct ResourceAgenda;
struct DaySchedule;
struct LockerResponse;
struct MapClickResponse;
struct Container;
struct ProfileAction;
class ORVSComponent;
struct NetworkResponseIOSConfiguration;
struct Ticket;
struct FormTicket;
struct SaveTicketRequest;
enum class TicketManagerType;
enum class BLEFrequency;
enum class SectionType;
enum class FilterType;
enum class ResourceType;
enum class ScheduleType;
struct RegistrationInfoRequest;
struct RegistrationInfoResponse;
struct NTFMNotification;
struct NTFMNotificationCount;
struct UpdateNotificationResponse;
struct SetDNDRequest;
enum class NTFMNotificationType;
enum class NTFMNotificationStatus;
struct SELanguage;

/// Whether a user is logged in: `unknown` while no Keycloak manager is set up, `authenticated`
/// while the current access token is valid, `notAuthenticated` otherwise (none, or expired).
enum class AuthenticationStatus { unknown, notAuthenticated, authenticated };

/// The answer of a REST operation's callback form, called exactly once on the main queue: code 200
/// with the decoded reply in `payload` on success, else the server's or the library's error.
using ResponseCallback = std::function<void(const ResponseMessage&)>;

/// How a request reaches the server: through the token decision and renewal of the pipeline, with
/// the session's headers but no renewal, or with no headers at all (public resources).
enum class RequestAccess { pipeline, sessionHeaders, none };

namespace detail {
class RenewalGate;
class RenewalFlight;
class Localizations;
class TagAdvertiser;
class PipelineCore;
class KeycloakRenewer;
struct FacadeAccess;
}  // namespace detail

/// The library's single entry object: configure it once with setupSDK, then call the operations of
/// Orvane::shared(). Each REST operation comes in two forms, grouped together below: a callback form
/// that answers once on the main queue with a ResponseMessage, and an awaitable form that returns
/// the reply record or throws APIError. It also holds the session, the login, the positioning tag,
/// the languages and the event streams.
class Orvane : public std::enable_shared_from_this<Orvane> {
 public:
  /// @{
  /// Persists the environment that the shared instance reads when it is constructed. With no
  /// environment, one is built from the information dictionary's "VeloraSDK" → "defaultURL".
  /// The first form stores it on Platform::getDefault(), the one Orvane::shared() uses; the second on
  /// `platform`, for instances made with make(). Call it before the first use of shared().
  static void setupSDK(std::optional<EnvironmentModel> environment);
  static void setupSDK(std::optional<EnvironmentModel> environment, const Platform& platform);
  /// @}

  /// The environment setupSDK stored on this platform, if any (what a new instance will use).
  static std::optional<EnvironmentModel> storedEnvironment(const Platform& platform);

  /// The shared instance, created on first use with Platform::getDefault().
  static Orvane& shared();

  /// A separate instance on the given platform (tests, several environments in one process). Keep
  /// it alive while the tasks and streams it returned still run.
  static std::shared_ptr<Orvane> make(Platform platform);

  Orvane(const Orvane&) = delete;
  Orvane& operator=(const Orvane&) = delete;
  ~Orvane();

  // ---- state ----------------------------------------------------------------------------------
  /// The environment setupSDK stored, read when the instance was made. Empty when none was stored;
  /// the instance still exists then, but its requests stop the process.
  std::optional<EnvironmentModel> environment;
  /// Installation identifier, persisted under "envUuid" and sent as header "uuid".
  std::string envUUID;
  /// Serialises awaited requests; created with one permit (each setupSession adds one).
  AsyncSemaphore resumeAsyncSessionSemaphore{1};
  /// Orders awaited captive renewals one at a time.
  AsyncSemaphore resumeAsyncCaptiveReauthSemaphore{1};

  /// The authenticated session as last rebuilt by setupSession.
  std::shared_ptr<const HttpSession> session() const;
  /// What this facade runs on: transport, queues, clock, stores, Bluetooth and the rest.
  const Platform& platform() const { return platform_; }
  /// The keychain items of this facade's platform.
  KeychainHelper& keychain() { return *keychain_; }

  /// `environment.sdkEndpoint`; stops the process without an environment.
  const std::string& sdkEndpoint() const;
  /// The information dictionary's "VeloraSDK" entry when it is an object.
  std::optional<AnyCodable> sdkConfig() const;
  /// sdkConfig()["KeycloakConfig"] when it is an object.
  std::optional<AnyCodable> keycloakConfig() const;
  /// sdkConfig()["languageEnabled"]; false when absent.
  bool languageEnabled() const;
  /// unknown before any Keycloak set-up; authenticated while the access token is valid.
  AuthenticationStatus authStatus() const;
  /// A fresh reachability check of the platform: false when none is set or it cannot look.
  bool hasConnectivity() const;
  /// The access token of the current session, if any.
  std::optional<std::string> accessToken() const;

  /// @{
  /// Rebuilds the session: "Content-Type", "Authorization" when a token is held, and "uuid".
  /// Signals resumeAsyncSessionSemaphore once, unconditionally.
  /// The login record, when given, is accepted but not used: the token comes from the Keycloak manager.
  void setupSession(const std::optional<NetworkResponseLogin>& login);
  void setupSession();
  /// @}

  // ---- request pipeline -----------------------------------------------------------------------
  /// A request to sdkEndpoint + `pathAndQuery` with the environment's time-out; nullopt when the
  /// URL does not parse.
  std::optional<HttpRequest> makeRequest(std::string_view pathAndQuery, std::string method = "GET",
                                         std::optional<std::string> body = std::nullopt) const;

  /// Callback entry: renews an expired session before sending, then answers `callback` once on the
  /// main queue. Only the type of `payload` matters: it is the reply type (Bytes for raw data).
  template <class T>
  void resumeSession(HttpRequest with, const T& payload, ResponseCallback callback) {
    (void)payload;
    resumeSessionWith(std::move(with), Access::pipeline,
                      [this](const HttpResponse& response) { return callbackReply<T>(response); }, std::move(callback));
  }

  /// @{
  /// Awaitable entry: runs under resumeAsyncSessionSemaphore from token check to decoded reply.
  /// Only the type of `payload` matters: it is the reply type (Bytes for raw data).
  /// The form without `payload` names the reply type as the template argument alone.
  template <class T>
  Task<T> resumeAsyncSession(HttpRequest with, const T& payload) {
    (void)payload;
    return resumeAsyncSession<T>(std::move(with));
  }
  template <class T>
  Task<T> resumeAsyncSession(HttpRequest with) {
    std::optional<T> value;
    auto exchange = resumeAsyncSessionWith(std::move(with), Access::pipeline,
                                           [this, &value](const HttpResponse& response) { value = awaitedReply<T>(response); });
    co_await std::move(exchange);
    co_return std::move(*value);
  }
  /// @}

  /// How the pipeline learns about and renews the session; the Keycloak set-up installs one.
  /// Without one, an expired or missing token is refused (callback form) or the request goes out
  /// as it is (awaitable form).
  void setSessionRenewer(std::shared_ptr<SessionRenewer> renewer);

  /// @{
  /// Opt-in single-flight renewal. When on, every request (callback or awaitable form) that meets
  /// an expired session joins the one renewal in flight instead of waiting for a turn to renew by
  /// itself: N such requests cause one refresh, all N then send with the new token, and when the
  /// renewal fails all N fail with its error, each once. Awaited requests join it before their
  /// turn under resumeAsyncSessionSemaphore. Off by default: then renewals run one at a time and
  /// each waiting request decides again when its turn comes, so after a failed renewal the next
  /// request tries its own (the platform's documented behaviour, which applications may rely on to
  /// retry a transient failure).
  void setSingleFlightRenewal(bool enabled);
  bool singleFlightRenewal() const;
  /// @}

  // ---- login (auth/Orvane+Keycloak) -----------------------------------------------------------
  /// Completion of a login: the new token, or the error that stopped it.
  using TokenCompletion = std::function<void(std::optional<KeyCloakAuthResponse>, std::optional<PlatformError>)>;

  /// Creates this facade's Keycloak manager (replacing an earlier one) and lets the pipeline
  /// renew sessions through it.
  void setupKeycloak(KeyCloakParameters with);
  /// The manager setupKeycloak or a login made; nullptr before either.
  std::shared_ptr<KeycloakManager> keycloakManager() const;

  /// Discovery and the parameter set of the configured mode, without logging in.
  Task<bool> networkSetup();
  /// Interactive (USER) login in the browser session.
  Task<KeyCloakAuthResponse> keycloakLogin();
  /// @{
  /// GUEST login with the application's client credentials.
  Task<KeyCloakAuthResponse> keycloakGuestLogin();
  void keycloakGuestLogin(TokenCompletion completion);
  /// @}
  /// @{
  /// BACKGROUND login: stores the given credentials first, else uses the stored ones.
  /// `expiration` -1 keeps the credentials valid for good; any other value stores them without an end
  /// date, so they count as expired. Fails with "keycloakLogin - Missing credentials." when none are
  /// given or stored.
  Task<KeyCloakAuthResponse> backgroundLogin(std::optional<std::string> username, std::optional<std::string> password,
                                             std::int64_t expiration);
  void backgroundLogin(std::optional<std::string> username, std::optional<std::string> password, std::int64_t expiration,
                       TokenCompletion completion);
  /// @}
  /// @{
  /// Ends the identity server's session and clears the current token.
  /// `parameters` default to the manager's own; fails with "Keycloak not configured" before any login
  /// set-up.
  Task<void> logout(std::optional<KeyCloakParameters> parameters);
  Task<void> logout();
  void logout(std::optional<KeyCloakParameters> parameters, std::function<void(std::optional<PlatformError>)> completion);
  /// @}
  /// @{
  /// Renews the session in the configured mode; what the pipeline calls for an expired session.
  /// Renewals run one at a time; a renewal asked for while another runs waits in a queue.
  Task<KeyCloakAuthResponse> captiveReauth();
  void captiveReauth(TokenCompletion completion);
  /// @}

  // ---- QR-code login (auth/Orvane+Authentication) ---------------------------------------------
  /// @{
  /// GET "/api/lgnm/v1/scan?code=": background-login credentials for a scanned code, stored in
  /// the keychain.
  /// `from` is appended as it is. A failure to store them is -27000 "Unable to store credentials to
  /// keychain".
  void getLoginParameters(std::string from, std::function<void(std::optional<ResponseMessage>)> completion);
  Task<BackgroundLoginParameters> getLoginParameters(std::string from);
  /// @}

  // ---- utilities (core/Orvane+Utils) ----------------------------------------------------------
  /// @{
  /// GET "/api/v1/public/diagnostic/check": whether the platform's server answers. The reply is the
  /// server's own ResponseMessage.
  void checkConnection(ResponseCallback callback);
  Task<ResponseMessage> checkConnection();
  /// @}

  /// @{
  /// POST "/api/v1/device/ios/conf" with this installation's identity.
  /// The body is NetworkRequestConfiguration (bundle identifier, envUUID, `tagid` when given); the
  /// reply is the device's registration, whose `iosadvConf` startAdvertisingRegion takes.
  void getConfiguration(std::optional<std::string> tagid, ResponseCallback callback);
  Task<NetworkResponseConfiguration> getConfiguration(std::optional<std::string> tagid);
  /// @}
  /// @{
  /// The same request as getConfiguration.
  void getOrCreateConfiguration(std::optional<std::string> tagid, ResponseCallback callback);
  Task<NetworkResponseConfiguration> getOrCreateConfiguration(std::optional<std::string> tagid);
  /// @}

  /// @{
  /// Downloads an image: `path` is a whole URL when it contains "http://" or "https://", else it
  /// is appended to sdkEndpoint. `publicFlag` sends it without the session's headers. No renewal.
  /// Errors are PlatformErrors: the transport's, -27002 for an invalid URL, -27000 for bytes that
  /// are not a PNG, JPEG, GIF or WebP image.
  void downloadSdkImage(std::string path, bool publicFlag,
                        std::function<void(std::optional<SdkImage>, std::optional<PlatformError>)> completion);
  Task<SdkImage> downloadSdkImage(std::string path, bool publicFlag);
  /// @}

  /// @{
  /// Raw bytes of a resource. Whole URLs are fetched without authentication; other paths go
  /// through the pipeline. The callback's payload is {"data": bytes}.
  void fetchResource(std::string path, ResponseCallback callback);
  Task<Bytes> fetchResource(std::string path);
  /// @}

  // ---- positioning tag (beacon/Orvane+Beacon; docs/beacon.md) ----------------------------------
  /// @{
  /// environment.quuppaEnv's identity bytes and advertising frequency; stop the process without
  /// an environment.
  std::uint8_t byte0() const;
  std::uint8_t byte1() const;
  BLEFrequency quuppaBLEFreq() const;
  void setQuuppaBLEFreq(BLEFrequency frequency);
  /// @}
  /// The proximity UUID of tag `with` (exactly twelve hexadecimal digits; an unreadable pair counts
  /// as 0): "BBTTTTTT-TTTT-TTCC-67F7-DB34C4038E5C" with B the second identity byte, T the tag's six
  /// bytes and C the CRC-8 of both identity bytes and the tag. `crc1`/`crc2` default to byte0/byte1.
  /// nullopt for a tag of any other length.
  std::optional<std::string> createUUID(const std::string& with, std::optional<std::uint8_t> crc1 = std::nullopt,
                                        std::optional<std::uint8_t> crc2 = std::nullopt) const;
  /// Completion of startAdvertisingRegion: the peripheral now on air, or the error (then nullptr).
  using AdvertisingCompletion = std::function<void(std::shared_ptr<BlePeripheral>, std::optional<PlatformError>)>;
  /// @{
  /// Advertises this device as the tag of configuration `with` on Platform::bluetooth: its times
  /// (`frequency`, when given, wins), the Enlighted identity when present. Once the peripheral is
  /// powered on the advertisement starts, continuously or in its duty cycle on a thread of its
  /// own; `completion` hears on the main queue of the first start, or of kInvalidTagFormat (nothing
  /// advertised), kAdvertisingFailed or kBluetoothUnavailable.
  /// The awaitable form returns the peripheral or throws the PlatformError.
  void startAdvertisingRegion(NetworkResponseIOSConfiguration with, std::optional<BLEFrequency> frequency,
                              AdvertisingCompletion completion);
  Task<std::shared_ptr<BlePeripheral>> startAdvertisingRegion(NetworkResponseIOSConfiguration with,
                                                              std::optional<BLEFrequency> frequency = std::nullopt);
  /// @}
  /// Ends the duty cycle and takes the advertisement off air before returning.
  void stopAdvertisingRegion();
  /// The peripheral's last reported state; each report is also posted as
  /// kPeripheralManagerStateChanged on the platform's notification centre.
  BlePowerState bluetoothState() const;
  /// What the tag advertises (or will once powered on), after startAdvertisingRegion.
  std::optional<BeaconIdentity> advertisementData() const;

  // ---- languages (core/Orvane+Languages; docs/languages.md) ----------------------------------
  /// The language in force: the one setLanguage last confirmed, else the offered list's default
  /// entry; empty when there is none.
  std::optional<SELanguage> currentLocalization() const;
  /// The languages the server last listed, or what an earlier run stored; empty before either.
  std::optional<std::vector<SELanguage>> availableLocalizations() const;
  /// @{
  /// GET "/public/api/v2/languages": stores the list as availableLocalizations.
  void getLanguages(ResponseCallback callback);
  Task<std::vector<SELanguage>> getLanguages();
  /// @}
  /// @{
  /// POST "/api/v2/setLanguage?language=CODE": the answered language becomes currentLocalization.
  void setLanguage(std::string code, ResponseCallback callback);
  Task<SELanguage> setLanguage(std::string code);
  /// @}

  // ---- controllable items (building/Orvane+Controllable) -------------------------------------
  /// @{
  /// POST "/api/v1/item/list". The awaitable form binds the returned controls to this facade, so
  /// setting a control's value sends it here.
  void getControllableItems(std::optional<ItemControllableFilter> filter, ResponseCallback callback);
  Task<std::vector<ItemControllable>> getControllableItems(std::optional<ItemControllableFilter> filter);
  Task<std::vector<ItemControllable>> getControllableItems();
  /// @}
  /// @{
  /// POST "/api/v1/item/set" with the control's current value; answers the value as stored.
  void setControllableItem(const ItemControl& control, ResponseCallback callback);
  Task<ItemCurrentValue> setControllableItem(const ItemControl& control);
  /// @}

  // ---- booking, schedules and lockers (booking/Orvane+Booking, booking/Orvane+BookingV1) -----
  // Day arguments travel as "yyyy-MM-dd" in the local time zone. Query values are percent-encoded;
  // absent optional ones are left out with their key. With `filterUnknownValues`, the awaitable
  // forms drop entries of a kind this library does not know (see each operation).
  /// @{
  /// POST "/api/v2/search". Filtering drops resources whose type is UNKNOWN.
  void search(BookFilterModel filter, ResponseCallback callback);
  Task<std::vector<Resource>> search(BookFilterModel filter, bool filterUnknownValues = false);
  /// @}
  /// @{
  /// GET "/api/v2/filter/section?sectionTypes=A&sectionTypes=B": the filter sections of the given
  /// screens (booking, search, map, group lockers); an empty list sends no "sectionTypes" at all.
  void getFiltersSection(std::vector<SectionType> sectionTypes, ResponseCallback callback);
  Task<std::vector<SectionFilter>> getFiltersSection(std::vector<SectionType> sectionTypes);
  /// @}
  /// @{
  /// GET "/api/v2/filter/resource?type=T".
  void getFiltersByResource(FilterType type, ResponseCallback callback);
  Task<Filter> getFiltersByResource(FilterType type);
  /// @}
  /// @{
  /// GET "/api/v2/filter?type=T".
  void getFilters(FilterType type, ResponseCallback callback);
  Task<Filter> getFilters(FilterType type);
  /// @}
  /// @{
  /// POST "/api/v2/schedule": creates or changes a booking; answers the request as stored.
  void schedule(ScheduleRequest request, ResponseCallback callback);
  Task<ScheduleRequest> schedule(ScheduleRequest request);
  /// @}
  /// @{
  /// DELETE `"/api/v2/schedule/<bookingId>"`: cancels the booking; the reply is the server's
  /// acknowledgement.
  void deleteSchedule(std::string bookingId, ResponseCallback callback);
  Task<ResponseMessage> deleteSchedule(std::string bookingId);
  /// @}
  /// @{
  /// GET `"/api/v2/booking/edit/<bookingId>[?type=T][&date=D]"`: the filter form to edit a booking.
  void getBookingFiltersBy(std::string bookingId, std::optional<ResourceType> type, std::optional<Date> date,
                           ResponseCallback callback);
  Task<std::vector<FilterElement>> getBookingFiltersBy(std::string bookingId, std::optional<ResourceType> type,
                                                       std::optional<Date> date);
  /// @}
  /// @{
  /// GET `"/api/v2/resource/<id>"`: one bookable resource (desk, room, parking space, locker...).
  void getElementResourceBy(std::string id, ResponseCallback callback);
  Task<Resource> getElementResourceBy(std::string id);
  /// @}
  /// @{
  /// PUT "/api/v2/favourite" with {"resourceId", "favourite"}: adds the resource to the user's
  /// favourites or, with `favourite` false, removes it.
  void setFavorite(std::string resourceId, bool favourite, ResponseCallback callback);
  Task<ResponseMessage> setFavorite(std::string resourceId, bool favourite);
  /// @}
  /// @{
  /// GET "/api/v2/booking/user/list[?search=S]": people who can be invited.
  void getUsers(std::optional<std::string> search, ResponseCallback callback);
  Task<std::vector<BookingUserInvite>> getUsers(std::optional<std::string> search);
  /// @}
  /// @{
  /// GET "/api/v2/booking/slots?resourceType=T&resourceId=R[&bookingId=B]&date=D": the free slots,
  /// each a list of "HH:mm" texts. Refused with -27000 "GetAvailableSlots - undefined URL",
  /// nothing sent, when the endpoint and path do not make a URL.
  void getAvailableSlots(std::string resourceId, std::optional<std::string> bookingId, ResourceType resourceType, Date date,
                         ResponseCallback callback);
  Task<std::vector<std::vector<std::string>>> getAvailableSlots(std::string resourceId, std::optional<std::string> bookingId,
                                                                ResourceType resourceType, Date date);
  /// @}
  /// @{
  /// POST "/api/v2/agenda/find". Filtering drops agendas whose element's type is UNKNOWN.
  void findAgenda(ResourceAgendaRequest request, ResponseCallback callback);
  Task<std::vector<ResourceAgenda>> findAgenda(ResourceAgendaRequest request, bool filterUnknownValues = false);
  /// @}
  /// @{
  /// GET "/api/v2/agenda/next/my?dateStart=D[&dateEnd=D]": the user's coming bookings. Filtering
  /// drops entries whose type, or scheduleType when present, is UNKNOWN.
  void getAgendaMy(Date dateStart, std::optional<Date> dateEnd, ResponseCallback callback);
  Task<std::vector<ScheduleElement>> getAgendaMy(Date dateStart, std::optional<Date> dateEnd,
                                                 bool filterUnknownValues = false);
  /// @}
  /// @{
  /// GET "/api/v2/agenda/day?id=ID[&type=T][&date=D]": the bookings of one day for element `id`.
  void getAgendaDay(std::string id, std::optional<ScheduleType> type, std::optional<Date> date, ResponseCallback callback);
  Task<DaySchedule> getAgendaDay(std::string id, std::optional<ScheduleType> type, std::optional<Date> date);
  /// @}
  /// @{
  /// POST "/api/v2/locker/booking" with {"resourceId": …}.
  void bookLocker(std::string resourceId, ResponseCallback callback);
  Task<ScheduleElement> bookLocker(std::string resourceId);
  /// @}
  /// @{
  /// POST "/api/v2/locker/book/nearest" with {"size": …}.
  void bookNearestLocker(std::string size, ResponseCallback callback);
  Task<ScheduleElement> bookNearestLocker(std::string size);
  /// @}
  /// @{
  /// GET "/api/v2/locker/filter?size=S": the filter form for booking a locker of that size.
  void getLockerFilter(std::string size, ResponseCallback callback);
  Task<Filter> getLockerFilter(std::string size);
  /// @}
  /// @{
  /// POST `"/api/v2/locker/unlock/<bookingId>"`: releases the door for `opentime` seconds.
  void unlock(std::string bookingId, ResponseCallback callback);
  Task<LockerResponse> unlock(std::string bookingId);
  /// @}
  /// @{
  /// POST `"/api/v2/locker/release/<bookingId>"`: ends the locker booking.
  void release(std::string bookingId, ResponseCallback callback);
  Task<ResponseMessage> release(std::string bookingId);
  /// @}
  /// @{
  /// POST "/api/v1/booking" with the tapped place as the map answered it.
  void submitBooking(MapClickResponse info, ResponseCallback callback);
  Task<ResponseMessage> submitBooking(MapClickResponse info);
  /// @}
  /// @{
  /// GET "/api/v2/booking/info?bookingId=ID": one booking.
  void getBooking(std::string bookingId, ResponseCallback callback);
  Task<ScheduleElement> getBooking(std::string bookingId);
  /// @}

  // ---- home screen (widgets/Orvane+Home) ------------------------------------------------------
  /// @{
  /// GET "/api/v2/home/my[?buildingId=ID]". Filtering drops containers whose type is UNKNOWN;
  /// their widgets stay as they are.
  void getMyHome(std::optional<std::string> buildingId, ResponseCallback callback);
  Task<std::vector<Container>> getMyHome(std::optional<std::string> buildingId, bool filterUnknownValues = false);
  /// @}
  /// @{
  /// GET "api/v2/profile/my", appended to the endpoint as it stands: give an endpoint ending in "/".
  void getUserActions(ResponseCallback callback);
  Task<ProfileAction> getUserActions();
  /// @}
  /// @{
  /// GET "/api/v2/widget/home[?tagid=T]": the widgets of the home screen, for the tag `tagId`
  /// when given.
  void getWidgetsHome(std::optional<std::string> tagId, ResponseCallback callback);
  Task<std::vector<ORVSComponent>> getWidgetsHome(std::optional<std::string> tagId);
  /// @}
  /// @{
  /// GET "/api/v2/widget/card?componentId=ID": one widget by its component id.
  void getWidgetCard(std::string componentId, ResponseCallback callback);
  Task<ORVSComponent> getWidgetCard(std::string componentId);
  /// @}
  /// @{
  /// POST "/api/v2/widget/card" with `body` as the JSON body.
  void postWidgetCard(AnyCodable body, ResponseCallback callback);
  Task<ORVSComponent> postWidgetCard(AnyCodable body);
  /// @}
  /// @{
  /// GET `"/api/v2/widget/room/<roomId>"`: the widgets of a room, as one group component.
  void getWidgetGroupComponents(std::string roomId, ResponseCallback callback);
  Task<ORVSComponent> getWidgetGroupComponents(std::string roomId);
  /// @}

  // ---- notifications (notifications/Orvane+Notifications) -----------------------------------
  /// A registration of this installation (`envUUID`) for `projectId` and the device's push token,
  /// with the bundle identifier as `appId`. Throws APIError -9003 "Invalid Bundle Identifier
  /// Specified" when the host has none.
  RegistrationInfoRequest registrationRequest(std::string projectId, std::string pushToken) const;
  /// @{
  /// POST "/api/ntfm/v1/device/register": registers the device for push notifications; build the
  /// request with registrationRequest.
  void ntfmRegister(RegistrationInfoRequest request, ResponseCallback callback);
  Task<RegistrationInfoResponse> ntfmRegister(RegistrationInfoRequest request);
  /// @}
  /// @{
  /// GET "/api/ntfm/v1/notification/list?pushToken=P&type=T[&status=S]...": one "status" item per
  /// entry of `notificationStatus`, in its order; none when it is absent or empty.
  void getNotifications(std::string pushToken, NTFMNotificationType notificationType,
                        std::optional<std::vector<NTFMNotificationStatus>> notificationStatus, ResponseCallback callback);
  Task<std::vector<NTFMNotification>> getNotifications(std::string pushToken, NTFMNotificationType notificationType,
                                                       std::optional<std::vector<NTFMNotificationStatus>> notificationStatus);
  /// @}
  /// @{
  /// GET "/api/ntfm/v1/notification/count?pushToken=P&type=T": how many notifications of that type
  /// the device has.
  void getNotificationsCount(std::string pushToken, NTFMNotificationType notificationType, ResponseCallback callback);
  Task<NTFMNotificationCount> getNotificationsCount(std::string pushToken, NTFMNotificationType notificationType);
  /// @}
  /// @{
  /// POST "/api/ntfm/v1/notification/delete?type=T" with the ids and the push token.
  void deleteNotifications(std::vector<std::string> notificationIds, std::string token, NTFMNotificationType notificationType,
                           ResponseCallback callback);
  Task<UpdateNotificationResponse> deleteNotifications(std::vector<std::string> notificationIds, std::string token,
                                                       NTFMNotificationType notificationType);
  /// @}
  /// @{
  /// POST "/api/ntfm/v1/notification/read?type=T" with the ids and the push token.
  void readNotifications(std::vector<std::string> notificationIds, std::string token, NTFMNotificationType notificationType,
                         ResponseCallback callback);
  Task<UpdateNotificationResponse> readNotifications(std::vector<std::string> notificationIds, std::string token,
                                                     NTFMNotificationType notificationType);
  /// @}

  // ---- tickets (tickets/Orvane+Tickets) --------------------------------------------------------
  /// @{
  /// GET "/api/ticket/manager/types". Filtering drops the types this library does not know.
  void getTicketManagerTypes(ResponseCallback callback);
  Task<std::vector<TicketManagerType>> getTicketManagerTypes(bool filterUnknownValues = false);
  /// @}
  /// @{
  /// GET `"/api/ticket/form/<manager>"`: the form a new ticket of that manager fills in.
  void getTicketForm(TicketManagerType manager, ResponseCallback callback);
  Task<std::vector<FormTicket>> getTicketForm(TicketManagerType manager);
  /// @}
  /// @{
  /// GET `"/api/ticket/form/<manager>/<id>"`: the form ticket `id` was filed with.
  void getTicketForm(TicketManagerType manager, std::string id, ResponseCallback callback);
  Task<std::vector<FormTicket>> getTicketForm(TicketManagerType manager, std::string id);
  /// @}
  /// @{
  /// POST `"/api/ticket/form/<manager>"` with the form as it stands: the server's form after the
  /// change (a changed select may add or remove fields).
  void updateTicketForm(std::vector<FormTicket> form, TicketManagerType manager, ResponseCallback callback);
  Task<std::vector<FormTicket>> updateTicketForm(std::vector<FormTicket> form, TicketManagerType manager);
  /// @}
  /// @{
  /// GET "/api/ticket": every ticket the user may see.
  void getTickets(ResponseCallback callback);
  Task<std::vector<Ticket>> getTickets();
  /// @}
  /// @{
  /// GET "/api/ticket/my": the user's own tickets.
  void getMyTickets(ResponseCallback callback);
  Task<std::vector<Ticket>> getMyTickets();
  /// @}
  /// @{
  /// GET `"/api/ticket/<id>"`: one ticket.
  void getTicket(std::string id, ResponseCallback callback);
  Task<Ticket> getTicket(std::string id);
  /// @}
  /// @{
  /// DELETE `"/api/ticket/<id>"`: the ticket as it was.
  void deleteTicket(std::string id, ResponseCallback callback);
  Task<Ticket> deleteTicket(std::string id);
  /// @}
  /// @{
  /// POST `"/api/ticket/save/<manager>"` as multipart/form-data (SaveTicketRequest::formData) with
  /// its "Content-Length". The photo and the voice note are sent from the request's own bytes.
  /// `onProgress` runs on the main queue with the bytes sent so far and the body's size; reports
  /// that come faster than the queue runs are merged, and all of them come before the reply.
  void saveTicket(SaveTicketRequest request, TicketManagerType manager, ResponseCallback callback,
                  UploadProgress onProgress = {});
  Task<std::vector<FormTicket>> saveTicket(SaveTicketRequest request, TicketManagerType manager,
                                           UploadProgress onProgress = {});
  /// @}

  // ---- do-not-disturb (notifications/Orvane+DND) ----------------------------------------------
  /// @{
  /// GET "/api/v2/dnd/ooo/day/time/interval" with `useTimeIntervals`, else "/api/v2/dnd/ooo/day/time":
  /// the user's do-not-disturb form. Filtering drops elements whose type is UNKNOWN.
  void getDNDFilters(bool useTimeIntervals, ResponseCallback callback);
  Task<std::vector<FilterElement>> getDNDFilters(bool useTimeIntervals, bool filterUnknownValues = false);
  /// @}
  /// @{
  /// POST "/api/v2/dnd/ooo/set": saves the user's do-not-disturb settings.
  void setDNDFilters(SetDNDRequest request, ResponseCallback callback);
  Task<ResponseMessage> setDNDFilters(SetDNDRequest request);
  /// @}

  // ---- streams (sse/Orvane+SSE, sse/Orvane+WidgetSSE) -----------------------------------------
  // Each operation opens a new subscription at once and returns its manager, or nullptr when the
  // request cannot be built. Keep the manager while the stream is wanted and stop it with
  // removeAllListenersAndDisconnect(). Callbacks run on the main queue; event data that does not
  // decode into the stream's record is dropped. A check interval above kCheckTime is lowered to
  // it (with a console line); "check" events stopping is the cue to start the stream again.
  /// Receives the data text of each "check" event, the server's sign that the stream is alive.
  using CheckCallback = std::function<void(const std::string& data)>;
  /// Receives each change of a widget stream: its type ("add", "update", "remove", "remove_all")
  /// and the widgets it concerns.
  using WidgetEventCallback = std::function<void(SSEWidgetEventsType type, const SSEWidgetEventChange& change)>;

  /// @{
  /// The reconnection policy of the streams started from now on (SSEManager::setReconnectPolicy);
  /// off by default, see StreamReconnectPolicy::enabled for why.
  void setStreamReconnectPolicy(StreamReconnectPolicy policy);
  StreamReconnectPolicy streamReconnectPolicy() const;
  /// @}

  /// "complete" (a GenericEventResponse) goes to onComplete, "check" to onCheck, and events named
  /// after one of `events` to onEventChanges; each with the raw (id, name, data).
  std::shared_ptr<SSEManager> startNotifyEventChanges(SSEStreamTypeEvent with, std::vector<std::string> events, int checkTimeout,
                                                      EventHandler onComplete = {}, EventHandler onEventChanges = {},
                                                      EventHandler onCheck = {});
  /// Positions of the given tags: "complete" and "positions" carry lists of MapPositionModel and
  /// reach onComplete and onValueChanged raw. The regions are not part of the subscription.
  std::shared_ptr<SSEManager> startNotifyRegionChanges(std::vector<std::string> with, std::vector<ORVRegion> regions,
                                                       int checkTimeout, EventHandler onComplete = {},
                                                       EventHandler onValueChanged = {}, EventHandler onCheck = {});
  /// The items at subscription, then each change of a current value. Controls of the items are
  /// bound to this facade.
  std::shared_ptr<SSEManager> startControllableItems(
      std::optional<std::vector<int>> items, std::optional<ItemControllableFilter> filter, int checkTimeout,
      std::function<void(const std::vector<ItemControllable>&)> onComplete = {},
      std::function<void(const std::vector<ItemCurrentValue>&)> onValueChanged = {}, CheckCallback onCheck = {});
  /// Tag states by tag id, at subscription and on every change.
  std::shared_ptr<SSEManager> startDiagnostic(
      std::vector<std::string> tags, double forgetTagMillis,
      std::function<void(const DiagnosticCompleteResponse&)> onComplete = {},
      std::function<void(const std::map<std::string, std::string>&)> onTagTracking = {}, CheckCallback onCheck = {});
  /// Receives the widgets a widget stream's "subscription" event delivers.
  using WidgetSubscriptionCallback = std::function<void(const SSEWidgetEventChange& widgets)>;
  /// @{
  /// Widget streams of a room (`roomId`) or of the home screen (`tagId`, optionally only the widgets
  /// of `widgetIdList`): "subscription" delivers the current widgets to onComplete; "add",
  /// "update", "remove" and "remove_all" reach onEventChanges with the event's type.
  std::shared_ptr<SSEManager> startNotifyGroupEvents(std::string roomId, int checkTimeout,
                                                     WidgetSubscriptionCallback onComplete = {},
                                                     WidgetEventCallback onEventChanges = {}, CheckCallback onCheck = {});
  std::shared_ptr<SSEManager> startNotifyHomeEvents(std::string tagId, std::optional<std::vector<std::string>> widgetIdList,
                                                    int checkTimeout, WidgetSubscriptionCallback onComplete = {},
                                                    WidgetEventCallback onEventChanges = {}, CheckCallback onCheck = {});
  /// @}
  /// Only "update" events: the one widget's new state.
  std::shared_ptr<SSEManager> startNotifyWidgetEvents(std::string componentId, int checkTimeout,
                                                      WidgetSubscriptionCallback onComplete = {},
                                                      WidgetEventCallback onEventChanges = {}, CheckCallback onCheck = {});

 private:
  friend class detail::PipelineCore;
  friend class detail::KeycloakRenewer;
  friend struct detail::FacadeAccess;
  friend class detail::Localizations;
  friend class KeycloakManager;
  explicit Orvane(Platform platform);

  using Access = RequestAccess;
  /// Turns any complete response into the callback's message (run on the main queue).
  using CallbackReply = std::function<ResponseMessage(const HttpResponse&)>;
  /// Turns any complete response into the awaiting caller's value; throws APIError for a failure.
  using AwaitedReply = std::function<void(const HttpResponse&)>;

  // The one pipeline core (core/RequestPipeline.cpp); the two forms differ only in the codes they
  // report, in the refusal of a request without any token, and in the semaphore.
  void resumeSessionWith(HttpRequest request, Access access, CallbackReply reply, ResponseCallback callback);
  Task<void> resumeAsyncSessionWith(HttpRequest request, Access access, AwaitedReply reply);
  /// Posts `message` to `callback` on the main queue; an exception from the callback is printed.
  void deliver(ResponseCallback callback, ResponseMessage message) const;

  /// The reply rules of each form for a reply type T.
  template <class T>
  ResponseMessage callbackReply(const HttpResponse& response) const {
    if (response.head.status != 200) return statusMessage(response);
    if constexpr (std::same_as<T, Bytes>) {
      return ResponseMessage(200, std::nullopt, std::nullopt, std::nullopt, dataPayload(response.body));
    } else {
      try {
        return ResponseMessage(200, typeName<T>() + " completed successfully", std::nullopt, std::nullopt,
                               encode(decodeJSON<T>(response.body)));
      } catch (const JsonError& e) {
        return jsonParsingFailure(e);
      }
    }
  }
  template <class T>
  T awaitedReply(const HttpResponse& response) const {
    if (response.head.status != 200) throw statusError(response);
    if constexpr (std::same_as<T, Bytes>) {
      return Bytes(response.body.begin(), response.body.end());
    } else {
      try {
        return decodeJSON<T>(response.body);
      } catch (const JsonError& e) {
        throw invalidJSONDecoded(e);
      }
    }
  }
  /// Callback form, status other than 200: the body's ResponseMessage, else status and its text.
  static ResponseMessage statusMessage(const HttpResponse& response);
  /// Awaitable form, status other than 200: the body's ResponseMessage, else "Invalid status code".
  static APIError statusError(const HttpResponse& response);
  /// {"data": bytes}
  static AnyCodable dataPayload(std::string_view body);
  /// A 200 body that is not the reply type: printed, then -27004 (callback) or -27003 (awaitable).
  ResponseMessage jsonParsingFailure(const JsonError& error) const;
  APIError invalidJSONDecoded(const JsonError& error) const;

  /// Operation templates (core/Operation.hpp): both forms of a declared operation.
  template <class Op>
  Task<typename Op::Reply> call(Op op);
  template <class Op>
  void call(Op op, ResponseCallback callback);

  /// Discovery, parameters and manager set-up shared by every login operation; `login` then runs
  /// the flow of the mode. The completion runs once, off the I/O thread.
  void runLogin(std::optional<KeycloakLoginMode> mode, bool requireClient,
                std::function<void(KeycloakManager&, TokenCompletion)> login, TokenCompletion completion);
  /// The captive renewal with its completion where the renewal ended (never the I/O thread).
  void renewCaptive(TokenCompletion completion);
  /// Wraps `completion` so it runs once on the main queue.
  TokenCompletion onMainQueue(TokenCompletion completion) const;

  /// Builds the POST stream of `path` with the session's headers; nullptr when it cannot be built.
  std::shared_ptr<SSEManager> startStream(std::string_view path, AnyCodable body, std::map<std::string, EventHandler> events);
  /// The check interval as sent: at most kCheckTime, with a console line when lowered.
  int clampCheckTime(int checkTimeout) const;
  std::shared_ptr<SSEManager> startWidgetStream(std::string_view path, SSESubscriptionRequest body, bool onlyUpdates,
                                                WidgetSubscriptionCallback onComplete, WidgetEventCallback onEventChanges,
                                                CheckCallback onCheck);

  Platform platform_;
  mutable std::mutex stateMutex_;
  std::shared_ptr<const HttpSession> session_;
  std::shared_ptr<SessionRenewer> renewer_;
  std::shared_ptr<KeycloakManager> keycloak_;
  std::unique_ptr<KeychainHelper> keychain_;
  /// Pipeline renewals, one at a time; requests that need one wait here, no thread blocks.
  std::shared_ptr<detail::RenewalGate> renewals_;
  /// Captive renewals asked for directly (callback form), one at a time.
  std::shared_ptr<detail::RenewalGate> captiveRenewals_;
  /// The shared renewal of setSingleFlightRenewal(true).
  std::shared_ptr<detail::RenewalFlight> renewalFlight_;
  std::atomic<bool> singleFlightRenewal_{false};
  StreamReconnectPolicy streamReconnectPolicy_;  // guarded by stateMutex_
  std::shared_ptr<detail::Localizations> localizations_;
  /// Made on the first startAdvertisingRegion.
  std::shared_ptr<detail::TagAdvertiser> advertiser_;
};

}  // namespace velora
