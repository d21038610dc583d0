#pragma once
// The vocabularies of server-driven components. Each decodes tolerantly: an unknown text becomes
// the last case, which is `unknown` where the list has one and otherwise the last listed style.

#include <velora/core/Record.hpp>

namespace velora {

/// The kind of a component, as named by the "type" key of its JSON object.
VELORA_ENUM(ORVSComponentType, BUTTON, DATEPICKER, DATEPICKER_MULTI, INPUT_TEXT, INPUT_NUMBER, TIMEPICKER, SLIDER,
    SECTION, FORM, STEPPER, STEP, SELECTOR, GENERIC_SELECTOR, PAGE_REFERENCE, WIDGET_BLUR, WIDGET_RADIAL,
    WIDGET_BLUR_RADIAL, WIDGET_VERTICAL, WIDGET_DOUBLE_VALUE, WIDGET_SECTION_EDITABLE, WIDGET_SECTION, WIDGET_GROUP,
    unknown);

VELORA_ENUM(ORVSButtonStyle, PRIMARY_FILLED, PRIMARY_OUTLINED, PRIMARY_TEXT, SECONDARY_FILLED, SECONDARY_OUTLINED,
    SECONDARY_TEXT, ERROR_FILLED, ERROR_OUTLINED, ERROR_TEXT);

/// What an input-text component validates its text as.
VELORA_ENUM(ORVSInputTextType, EMAIL, URL);

VELORA_ENUM(ORVSWidgetScrollDirection, HORIZONTAL, VERTICAL);

/// The kind of equipment a widget controls.
VELORA_ENUM(ORVSWidgetType, LIGHT_RADIAL_DIMMER, LIGHT_RADIAL_RGB, TEMPERATURE_RADIAL, BLINDS_VERTICAL_HEIGHT,
    BLINDS_VERTICAL_HA, DOOR_BLUR_RADIAL, unknown);

}  // namespace velora
