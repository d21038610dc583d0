#pragma once
// Everything an application needs, in one include.

#include <velora/auth/KeychainHelper.hpp>
#include <velora/auth/KeycloakManager.hpp>
#include <velora/auth/KeycloakRecords.hpp>
#include <velora/booking/Booking.hpp>
#include <velora/building/ControllableItems.hpp>
#include <velora/core/APIError.hpp>
#include <velora/core/AnyCodable.hpp>
#include <velora/core/DeviceConfiguration.hpp>
#include <velora/core/EnvironmentModel.hpp>
#include <velora/core/Executor.hpp>
#include <velora/core/Language.hpp>
#include <velora/core/NetworkLogin.hpp>
#include <velora/core/ORVSLogManager.hpp>
#include <velora/core/OperationRegistry.hpp>
#include <velora/core/Orvane.hpp>
#include <velora/core/PlatformError.hpp>
#include <velora/core/Record.hpp>
#include <velora/core/ResponseMessage.hpp>
#include <velora/core/SdkImage.hpp>
#include <velora/core/SessionRenewer.hpp>
#include <velora/core/Task.hpp>
#include <velora/core/URL.hpp>
#include <velora/core/Version.hpp>
#include <velora/map/DynamicMapView.hpp>
#include <velora/map/MapClick.hpp>
#include <velora/map/MapConfiguration.hpp>
#include <velora/map/MapEvents.hpp>
#include <velora/map/MapPositionModel.hpp>
#include <velora/map/ORVRegion.hpp>
#include <velora/map/Positioning.hpp>
#include <velora/notifications/Notifications.hpp>
#include <velora/tickets/Tickets.hpp>
#include <velora/beacon/Beacon.hpp>
#include <velora/platform/Platform.hpp>
#include <velora/semaphore/AsyncSemaphore.hpp>
#include <velora/sse/EventSource.hpp>
#include <velora/sse/EventStreamParser.hpp>
#include <velora/sse/SSEManager.hpp>
#include <velora/sse/SSERecords.hpp>
#include <velora/widgets/HomeWidgets.hpp>
#include <velora/widgets/ORVSComponent.hpp>

/// The platform client: `Orvane` is the entry point that logs a user in and calls every
/// operation; the records it sends and receives, the event streams, the map view and the
/// positioning tag live here too. Names under `velora::detail` are not part of the API.
namespace velora {}
