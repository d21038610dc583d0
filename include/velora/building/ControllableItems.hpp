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

VELORA_ENUM(ControllableElementType, GENERIC, DOOR, LIGHT, BLIND, WINDOW, ELEVATOR, TEMPERATURE, GREEN_LEAF, OCCUPANCY,
    HUMIDITY, AIR_QUALITY, UNKNOWN);

VELORA_ENUM(ItemControlType, CTRL_BUTTON, CTRL_TOGGLE, CTRL_CHOICE, CTRL_SLIDER, CTRL_LABEL, UNKNOWN);

VELORA_ENUM(ItemControlChoiceType, CHECK_BOX, RADIO, SCENARIO, UNKNOWN);

VELORA_ENUM(DirectionalRectEdge, bottom, leading, top, trailing, unknown);

struct MobileIcon {
  std::string name;
  /// Alternative text.
  std::string alt;
  std::string lightPath;
  std::optional<std::string> darkPath;

  VELORA_RECORD(MobileIcon, name, alt, lightPath, darkPath);
};

/// Where an item sits in the building. The platform does not pin this shape down, so every
/// member is optional and an item never fails to decode because of it.
struct BuildingPositionModel {
  std::optional<int> buildingId;
  std::optional<std::string> buildingName;
  std::optional<int> mapId;
  std::optional<int> level;
  std::optional<int> roomId;
  std::optional<int> areaId;

  VELORA_RECORD(BuildingPositionModel, buildingId, buildingName, mapId, level, roomId, areaId);
};

/// A control's value. Every kind of value (on/off, a number, a choice) travels as text.
struct ItemCurrentValue {
  /// The id of this value on the server (not the item's id).
  int id = 0;
  std::optional<std::string> value;

  VELORA_RECORD(ItemCurrentValue, id, value);
};

struct ItemChoiceOption {
  std::string name;
  std::optional<std::string> i18nName;
  /// The value sent when this option is chosen.
  std::string optionValue;
  std::optional<MobileIcon> optionIcon;

  VELORA_RECORD(ItemChoiceOption, name, i18nName, optionValue, optionIcon);
};

/// One control of an item. Shared by reference: the view that draws it and the library see the
/// same object. Setting its current value sends the value to the server, every time.
class ItemControl {
 public:
  std::string name;
  std::optional<std::string> i18nName;
  ItemControlType type = ItemControlType::UNKNOWN;
  std::optional<std::string> buttonValue;
  std::optional<MobileIcon> buttonIcon;
  std::optional<DirectionalRectEdge> buttonIconPlacement;
  std::optional<std::string> toggleOnValue;
  std::optional<MobileIcon> toggleOnIcon;
  std::optional<std::string> toggleOffValue;
  std::optional<MobileIcon> toggleOffIcon;
  std::optional<MobileIcon> labelIcon;
  std::optional<DirectionalRectEdge> labelIconPlacement;
  std::optional<ItemControlChoiceType> choiceType;
  std::optional<std::vector<ItemChoiceOption>> choiceOptions;
  std::optional<double> max;
  std::optional<double> min;
  std::optional<double> step;
  std::optional<MobileIcon> sliderMaxIcon;
  std::optional<MobileIcon> sliderMinIcon;

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

struct ItemControllable {
  int id = 0;
  std::string logicName;
  std::string widgetName;
  std::optional<std::string> name;
  ControllableElementType type = ControllableElementType::UNKNOWN;
  std::optional<MapPositionModel> position;
  std::optional<std::vector<BuildingPositionModel>> buildingPositionList;
  std::optional<MobileIcon> icon;
  std::optional<std::vector<std::shared_ptr<ItemControl>>> controls;
  /// Localised display name, filled by the application; never read from or written to JSON.
  std::optional<std::string> i18nName;

  VELORA_FIELDS(ItemControllable, id, logicName, widgetName, name, type, position, buildingPositionList, icon,
      controls, VELORA_NOT_CODED(i18nName));
  friend bool operator==(const ItemControllable& a, const ItemControllable& b) { return encode(a) == encode(b); }
};

/// Binds every control of `items` to `facade` (see ItemControl::bind).
void bindControls(std::vector<ItemControllable>& items, const std::weak_ptr<Orvane>& facade);

struct Control {
  std::string id;

  VELORA_RECORD(Control, id);
};

struct ItemControllableFilter {
  std::optional<std::string> logicName;
  std::optional<int> areaId;
  std::optional<int> roomId;
  std::optional<int> mapId;
  /// Centre of a distance search of `radius`.
  std::optional<MapPositionModel> referencePoint;
  double radius = 0;
  bool hasPosition = false;
  std::vector<std::string> widgetNames;
  std::optional<std::vector<ControllableElementType>> types;

  VELORA_RECORD(ItemControllableFilter, logicName, areaId, roomId, mapId, referencePoint, radius, hasPosition,
      widgetNames, types);
};

struct ItemControllableRequest {
  std::optional<ItemControllableFilter> filter;

  VELORA_RECORD(ItemControllableRequest, filter);
};

}  // namespace velora
