#pragma once
// The vocabularies of server-driven components. Each decodes tolerantly: an unknown text becomes
// the last case, which is `unknown` where the list has one and otherwise the last listed style.

#include <array>

#include <velora/core/Record.hpp>

namespace velora {

// Every raw text here equals its case name.
#define VELORA_WIDGET_CASE(E, name) EnumCase<E>{E::name, #name}

/// The kind of a component, as named by the "type" key of its JSON object.
enum class ORVSComponentType {
  BUTTON, DATEPICKER, DATEPICKER_MULTI, INPUT_TEXT, INPUT_NUMBER, TIMEPICKER, SLIDER, SECTION, FORM, STEPPER, STEP,
  SELECTOR, GENERIC_SELECTOR, PAGE_REFERENCE, WIDGET_BLUR, WIDGET_RADIAL, WIDGET_BLUR_RADIAL, WIDGET_VERTICAL,
  WIDGET_DOUBLE_VALUE, WIDGET_SECTION_EDITABLE, WIDGET_SECTION, WIDGET_GROUP, unknown
};
constexpr auto enumCases(ORVSComponentType) {
  using E = ORVSComponentType;
  return std::array{
      VELORA_WIDGET_CASE(E, BUTTON), VELORA_WIDGET_CASE(E, DATEPICKER), VELORA_WIDGET_CASE(E, DATEPICKER_MULTI),
      VELORA_WIDGET_CASE(E, INPUT_TEXT), VELORA_WIDGET_CASE(E, INPUT_NUMBER), VELORA_WIDGET_CASE(E, TIMEPICKER),
      VELORA_WIDGET_CASE(E, SLIDER), VELORA_WIDGET_CASE(E, SECTION), VELORA_WIDGET_CASE(E, FORM),
      VELORA_WIDGET_CASE(E, STEPPER), VELORA_WIDGET_CASE(E, STEP), VELORA_WIDGET_CASE(E, SELECTOR),
      VELORA_WIDGET_CASE(E, GENERIC_SELECTOR), VELORA_WIDGET_CASE(E, PAGE_REFERENCE), VELORA_WIDGET_CASE(E, WIDGET_BLUR),
      VELORA_WIDGET_CASE(E, WIDGET_RADIAL), VELORA_WIDGET_CASE(E, WIDGET_BLUR_RADIAL),
      VELORA_WIDGET_CASE(E, WIDGET_VERTICAL), VELORA_WIDGET_CASE(E, WIDGET_DOUBLE_VALUE),
      VELORA_WIDGET_CASE(E, WIDGET_SECTION_EDITABLE), VELORA_WIDGET_CASE(E, WIDGET_SECTION),
      VELORA_WIDGET_CASE(E, WIDGET_GROUP), VELORA_WIDGET_CASE(E, unknown)};
}

enum class ORVSButtonStyle {
  PRIMARY_FILLED, PRIMARY_OUTLINED, PRIMARY_TEXT, SECONDARY_FILLED, SECONDARY_OUTLINED, SECONDARY_TEXT,
  ERROR_FILLED, ERROR_OUTLINED, ERROR_TEXT
};
constexpr auto enumCases(ORVSButtonStyle) {
  using E = ORVSButtonStyle;
  return std::array{VELORA_WIDGET_CASE(E, PRIMARY_FILLED),   VELORA_WIDGET_CASE(E, PRIMARY_OUTLINED),
                    VELORA_WIDGET_CASE(E, PRIMARY_TEXT),     VELORA_WIDGET_CASE(E, SECONDARY_FILLED),
                    VELORA_WIDGET_CASE(E, SECONDARY_OUTLINED), VELORA_WIDGET_CASE(E, SECONDARY_TEXT),
                    VELORA_WIDGET_CASE(E, ERROR_FILLED),     VELORA_WIDGET_CASE(E, ERROR_OUTLINED),
                    VELORA_WIDGET_CASE(E, ERROR_TEXT)};
}

/// What an input-text component validates its text as.
enum class ORVSInputTextType { EMAIL, URL };
constexpr auto enumCases(ORVSInputTextType) {
  using E = ORVSInputTextType;
  return std::array{VELORA_WIDGET_CASE(E, EMAIL), VELORA_WIDGET_CASE(E, URL)};
}

enum class ORVSWidgetScrollDirection { HORIZONTAL, VERTICAL };
constexpr auto enumCases(ORVSWidgetScrollDirection) {
  using E = ORVSWidgetScrollDirection;
  return std::array{VELORA_WIDGET_CASE(E, HORIZONTAL), VELORA_WIDGET_CASE(E, VERTICAL)};
}

/// The kind of equipment a widget controls.
enum class ORVSWidgetType {
  LIGHT_RADIAL_DIMMER, LIGHT_RADIAL_RGB, TEMPERATURE_RADIAL, BLINDS_VERTICAL_HEIGHT, BLINDS_VERTICAL_HA, DOOR_BLUR_RADIAL,
  unknown
};
constexpr auto enumCases(ORVSWidgetType) {
  using E = ORVSWidgetType;
  return std::array{VELORA_WIDGET_CASE(E, LIGHT_RADIAL_DIMMER), VELORA_WIDGET_CASE(E, LIGHT_RADIAL_RGB),
                    VELORA_WIDGET_CASE(E, TEMPERATURE_RADIAL),  VELORA_WIDGET_CASE(E, BLINDS_VERTICAL_HEIGHT),
                    VELORA_WIDGET_CASE(E, BLINDS_VERTICAL_HA),  VELORA_WIDGET_CASE(E, DOOR_BLUR_RADIAL),
                    VELORA_WIDGET_CASE(E, unknown)};
}

#undef VELORA_WIDGET_CASE

}  // namespace velora
