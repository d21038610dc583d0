#pragma once
// The vocabularies of server-driven components. Each decodes tolerantly: an unknown text becomes
// the last case, which is `unknown` where the list has one and otherwise the last listed style.

#include <velora/core/Record.hpp>

namespace velora {

/// The kind of a component, as named by the "type" key of its JSON object; each kind has its own
/// record (ORVSButtonModel for BUTTON and so on). `unknown` travels as "unknown" and is what
/// ORVSComponent::type() answers for a kind this library does not know.
VELORA_ENUM(ORVSComponentType, BUTTON, DATEPICKER, DATEPICKER_MULTI, INPUT_TEXT, INPUT_NUMBER, TIMEPICKER, SLIDER,
    SECTION, FORM, STEPPER, STEP, SELECTOR, GENERIC_SELECTOR, PAGE_REFERENCE, WIDGET_BLUR, WIDGET_RADIAL,
    WIDGET_BLUR_RADIAL, WIDGET_VERTICAL, WIDGET_DOUBLE_VALUE, WIDGET_SECTION_EDITABLE, WIDGET_SECTION, WIDGET_GROUP,
    unknown);

/// How a button looks: its emphasis (primary, secondary or error colours) and its fill (solid, outlined or
/// bare text). There is no `unknown` case, so a style this library does not know reads as ERROR_TEXT.
VELORA_ENUM(ORVSButtonStyle, PRIMARY_FILLED, PRIMARY_OUTLINED, PRIMARY_TEXT, SECONDARY_FILLED, SECONDARY_OUTLINED,
    SECONDARY_TEXT, ERROR_FILLED, ERROR_OUTLINED, ERROR_TEXT);

/// What an input-text component validates its text as; an unknown text reads as URL.
VELORA_ENUM(ORVSInputTextType, EMAIL, URL);

/// How a widget section lays out its components: in a row that scrolls sideways (HORIZONTAL) or in a
/// column (VERTICAL); an unknown text reads as VERTICAL.
VELORA_ENUM(ORVSWidgetScrollDirection, HORIZONTAL, VERTICAL);

/// The kind of equipment a widget controls, and the widget shape that shows it (radial dial, vertical
/// bar, blurred card): lights, temperature, blinds and doors. Other texts read as `unknown`.
VELORA_ENUM(ORVSWidgetType, LIGHT_RADIAL_DIMMER, LIGHT_RADIAL_RGB, TEMPERATURE_RADIAL, BLINDS_VERTICAL_HEIGHT,
    BLINDS_VERTICAL_HA, DOOR_BLUR_RADIAL, unknown);

}  // namespace velora
