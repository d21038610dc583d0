#pragma once
// Building equipment a user may operate (doors, lights, blinds, thermostats, sensors), each with
// the description of its controls so an application can draw them without knowing the device.

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <velora/core/Record.hpp>
#include <velora/map/MapPositionModel.hpp>

namespace velora {

class Orvane;

/// The kind of equipment an item is (a door, a light, a thermostat, an occupancy or air-quality
/// sensor...). A text the library does not know decodes as UNKNOWN.
VELORA_ENUM(ControllableElementType, GENERIC, DOOR, LIGHT, BLIND, WINDOW, ELEVATOR, TEMPERATURE, GREEN_LEAF, OCCUPANCY,
    HUMIDITY, AIR_QUALITY, UNKNOWN);

/// How a control is drawn and which of ItemControl's members describe it: a button (`button...`), an
/// on/off toggle (`toggle...`), a choice (`choice...`), a slider (`min`, `max`, `step`, `slider...`)
/// or a read-only label (`label...`). UNKNOWN for a text the library does not know.
VELORA_ENUM(ItemControlType, CTRL_BUTTON, CTRL_TOGGLE, CTRL_CHOICE, CTRL_SLIDER, CTRL_LABEL, UNKNOWN);

/// How a choice control offers its options: as check boxes (several may be on), radio buttons (one
/// at a time) or scenario buttons. UNKNOWN for a text the library does not know.
VELORA_ENUM(ItemControlChoiceType, CHECK_BOX, RADIO, SCENARIO, UNKNOWN);

/// The side of a button or label an icon sits on; `leading` and `trailing` follow the reading
/// direction of the language. Lower case, as the platform writes them; an unknown text reads as
/// `unknown`.
VELORA_ENUM(DirectionalRectEdge, bottom, leading, top, trailing, unknown);

/// An icon of a controllable item or control, with an image for each colour scheme.
struct MobileIcon {
  /// Identifies the icon; the paths below locate its images.
  std::string name;
  /// Alternative text.
  std::string alt;
  /// Path of the image for the light appearance, and the one to use in the dark when `darkPath` is
  /// absent.
  std::string lightPath;
  /// Path of the image for the dark appearance.
  std::optional<std::string> darkPath;

  VELORA_RECORD(MobileIcon, name, alt, lightPath, darkPath);
};

/// Where an item sits in the building. The platform does not pin this shape down, so every
/// member is optional and an item never fails to decode because of it.
struct BuildingPositionModel {
  /// @{
  /// The building's id and name.
  std::optional<int> buildingId;
  std::optional<std::string> buildingName;
  /// @}
  /// @{
  /// The floor map and floor level, and the room and area on it, by the ids the map uses (as in
  /// MapPositionModel).
  std::optional<int> mapId;
  std::optional<int> level;
  std::optional<int> roomId;
  std::optional<int> areaId;
  /// @}

  VELORA_RECORD(BuildingPositionModel, buildingId, buildingName, mapId, level, roomId, areaId);
};

/// A control's value. Every kind of value (on/off, a number, a choice) travels as text.
struct ItemCurrentValue {
  /// The id of this value on the server (not the item's id).
  int id = 0;
  /// The value as text: a button's `buttonValue`, a toggle's on or off value, a chosen
  /// `optionValue`, a slider's number; absent when the item reports none.
  std::optional<std::string> value;

  VELORA_RECORD(ItemCurrentValue, id, value);
};

/// One option of a choice control.
struct ItemChoiceOption {
  /// @{
  /// Label of the option and its localisation key.
  std::string name;
  std::optional<std::string> i18nName;
  /// @}
  /// The value sent when this option is chosen.
  std::string optionValue;
  /// Icon drawn with the option; absent for a text-only option.
  std::optional<MobileIcon> optionIcon;

  VELORA_RECORD(ItemChoiceOption, name, i18nName, optionValue, optionIcon);
};

/// One control of an item. Shared by reference: the view that draws it and the library see the
/// same object. Setting its current value sends the value to the server, every time.
class ItemControl {
 public:
  /// @{
  /// Label of the control and its localisation key.
  std::string name;
  std::optional<std::string> i18nName;
  /// @}
  /// Which kind of control this is, and so which of the members below are filled.
  ItemControlType type = ItemControlType::UNKNOWN;
  /// @{
  /// A button: the value a press sends, its icon and the side the icon sits on.
  std::optional<std::string> buttonValue;
  std::optional<MobileIcon> buttonIcon;
  std::optional<DirectionalRectEdge> buttonIconPlacement;
  /// @}
  /// @{
  /// A toggle: the value sent and the icon shown for each of its two states.
  std::optional<std::string> toggleOnValue;
  std::optional<MobileIcon> toggleOnIcon;
  std::optional<std::string> toggleOffValue;
  std::optional<MobileIcon> toggleOffIcon;
  /// @}
  /// @{
  /// A label: its icon and the side the icon sits on.
  std::optional<MobileIcon> labelIcon;
  std::optional<DirectionalRectEdge> labelIconPlacement;
  /// @}
  /// @{
  /// A choice: how the options are offered, and the options in display order.
  std::optional<ItemControlChoiceType> choiceType;
  std::optional<std::vector<ItemChoiceOption>> choiceOptions;
  /// @}
  /// @{
  /// A slider: its range and step; the number chosen travels as text in the current value.
  std::optional<double> max;
  std::optional<double> min;
  std::optional<double> step;
  /// @}
  /// @{
  /// A slider: the icons drawn at its maximum and minimum ends.
  std::optional<MobileIcon> sliderMaxIcon;
  std::optional<MobileIcon> sliderMinIcon;
  /// @}

  /// The control's value as last received or assigned; read under the JSON key "currentValue".
  const ItemCurrentValue& currentValue() const { return currentValue_; }

  /// Stores the value and, right away, sends it with setControllableItem on a request of its own
  /// whose answer is not awaited; prints "setControllableItem(<value as JSON>)" on the console.
  /// Two assignments send two requests, also when the value did not change; their order on the
  /// server is not guaranteed.
  void setCurrentValue(ItemCurrentValue value);

  /// The facade whose setControllableItem the write-through uses. Controls returned by a facade
  /// are bound to it; an unbound control uses Orvane::shared(). Once the bound facade is gone,
  /// assignments are kept locally and no longer sent.
  void bind(std::weak_ptr<Orvane> facade) {
    facade_ = std::move(facade);
    bound_ = true;
  }

  VELORA_FIELDS(ItemControl, name, i18nName, type, (currentValue_, "currentValue"), buttonValue, buttonIcon,
      buttonIconPlacement, toggleOnValue, toggleOnIcon, toggleOffValue, toggleOffIcon, labelIcon, labelIconPlacement,
      choiceType, choiceOptions, max, min, step, sliderMaxIcon, sliderMinIcon);
  /// The current value is private so that every assignment is sent; private members keep the
  /// record layer from counting the members of this class.
  static constexpr bool uncountedMembers = true;

  /// Compares what the server sent; the binding to a facade is not part of the value.
  friend bool operator==(const ItemControl& a, const ItemControl& b) { return encode(a) == encode(b); }

 private:
  ItemCurrentValue currentValue_;
  std::weak_ptr<Orvane> facade_;
  bool bound_ = false;
};

/// A piece of building equipment a user may operate or read, as getControllableItems and the
/// controllable-item stream deliver it. Two items are equal when they encode alike.
struct ItemControllable {
  /// The item's id: what the controllable-item stream's `items` filter takes.
  int id = 0;
  /// The equipment's logical name on the platform; what ItemControllableFilter::logicName matches.
  std::string logicName;
  /// The name of the widget that shows the item; what ItemControllableFilter::widgetNames matches.
  std::string widgetName;
  /// Display name; absent when the platform gives none.
  std::optional<std::string> name;
  /// The kind of equipment; UNKNOWN for a text the library does not know.
  ControllableElementType type = ControllableElementType::UNKNOWN;
  /// Where the map draws the item; absent for an item without a place.
  std::optional<MapPositionModel> position;
  /// The building, floor, room and area the item belongs to; a list, as one item may be in several.
  std::optional<std::vector<BuildingPositionModel>> buildingPositionList;
  /// The icon to draw the item with; absent when the platform gives none.
  std::optional<MobileIcon> icon;
  /// The controls, in display order; absent when the JSON has no "controls". Shared, so that a view
  /// and the library work on the same control; each is bound to the facade that fetched it.
  std::optional<std::vector<std::shared_ptr<ItemControl>>> controls;
  /// Localised display name, filled by the application; never read from or written to JSON.
  std::optional<std::string> i18nName;

  VELORA_FIELDS(ItemControllable, id, logicName, widgetName, name, type, position, buildingPositionList, icon,
      controls, VELORA_NOT_CODED(i18nName));
  friend bool operator==(const ItemControllable& a, const ItemControllable& b) { return encode(a) == encode(b); }
};

/// Binds every control of `items` to `facade` (see ItemControl::bind).
void bindControls(std::vector<ItemControllable>& items, const std::weak_ptr<Orvane>& facade);

/// A control named by its id alone, as some platform answers carry it; no operation of this library
/// sends or returns it.
struct Control {
  /// The id of the control on the platform; the record carries nothing else.
  std::string id;

  VELORA_RECORD(Control, id);
};

/// Which controllable items getControllableItems and the controllable-item stream return; each
/// member that is set narrows the list. Absent members are left out of the JSON.
struct ItemControllableFilter {
  /// Only the item with this logical name.
  std::optional<std::string> logicName;
  /// @{
  /// Only items in this area, room or on this floor map (ids as in MapPositionModel).
  std::optional<int> areaId;
  std::optional<int> roomId;
  std::optional<int> mapId;
  /// @}
  /// Centre of a distance search of `radius`.
  std::optional<MapPositionModel> referencePoint;
  /// Radius of the distance search around `referencePoint`, in metres on the floor plan; always
  /// sent, 0 by default.
  double radius = 0;
  /// Only items that have a position on the map.
  bool hasPosition = false;
  /// Only items shown by these widgets (ItemControllable::widgetName); always sent, empty by default.
  std::vector<std::string> widgetNames;
  /// Only these kinds of equipment.
  std::optional<std::vector<ControllableElementType>> types;

  VELORA_RECORD(ItemControllableFilter, logicName, areaId, roomId, mapId, referencePoint, radius, hasPosition,
      widgetNames, types);
};

/// The body getControllableItems sends.
struct ItemControllableRequest {
  /// The filter; absent (left out of the JSON) for no filter at all.
  std::optional<ItemControllableFilter> filter;

  VELORA_RECORD(ItemControllableRequest, filter);
};

}  // namespace velora
