#pragma once
// Everything an application needs, in one include.

#include <velora/building/ControllableItems.hpp>
#include <velora/core/APIError.hpp>
#include <velora/core/AnyCodable.hpp>
#include <velora/core/DeviceConfiguration.hpp>
#include <velora/core/EnvironmentModel.hpp>
#include <velora/core/ORVSLogManager.hpp>
#include <velora/core/Orvane.hpp>
#include <velora/core/PlatformError.hpp>
#include <velora/core/Record.hpp>
#include <velora/core/ResponseMessage.hpp>
#include <velora/core/Task.hpp>
#include <velora/core/URL.hpp>
#include <velora/map/MapPositionModel.hpp>
#include <velora/map/ORVRegion.hpp>
#include <velora/platform/Platform.hpp>
#include <velora/semaphore/AsyncSemaphore.hpp>
#include <velora/sse/EventSource.hpp>
#include <velora/sse/EventStreamParser.hpp>
#include <velora/sse/SSEManager.hpp>
#include <velora/sse/SSERecords.hpp>
#include <velora/widgets/ORVSComponent.hpp>
