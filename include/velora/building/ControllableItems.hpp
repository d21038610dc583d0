#pragma once
// Building equipment a user may operate (doors, lights, blinds, thermostats, sensors), each with
// the description of its controls so an application can draw them without knowing the device.

#include <array>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include <velora/core/Record.hpp>
#include <velora/map/MapPositionModel.hpp>

namespace velora {

class Orvane;

#define VELORA_ITEM_CASE(E, name) EnumCase<E>{E::name, #name}

enum class ControllableElementType {
  GENERIC, DOOR, LIGHT, BLIND, WINDOW, ELEVATOR, TEMPERATURE, GREEN_LEAF, OCCUPANCY, HUMIDITY, AIR_QUALITY, UNKNOWN
};
constexpr auto enumCases(ControllableElementType) {
  using E = ControllableElementType;
  return std::array{VELORA_ITEM_CASE(E, GENERIC),     VELORA_ITEM_CASE(E, DOOR),      VELORA_ITEM_CASE(E, LIGHT),
                    VELORA_ITEM_CASE(E, BLIND),       VELORA_ITEM_CASE(E, WINDOW),    VELORA_ITEM_CASE(E, ELEVATOR),
                    VELORA_ITEM_CASE(E, TEMPERATURE), VELORA_ITEM_CASE(E, GREEN_LEAF), VELORA_ITEM_CASE(E, OCCUPANCY),
                    VELORA_ITEM_CASE(E, HUMIDITY),    VELORA_ITEM_CASE(E, AIR_QUALITY), VELORA_ITEM_CASE(E, UNKNOWN)};
}

enum class ItemControlType { CTRL_BUTTON, CTRL_TOGGLE, CTRL_CHOICE, CTRL_SLIDER, CTRL_LABEL, UNKNOWN };
constexpr auto enumCases(ItemControlType) {
  using E = ItemControlType;
  return std::array{VELORA_ITEM_CASE(E, CTRL_BUTTON), VELORA_ITEM_CASE(E, CTRL_TOGGLE), VELORA_ITEM_CASE(E, CTRL_CHOICE),
                    VELORA_ITEM_CASE(E, CTRL_SLIDER), VELORA_ITEM_CASE(E, CTRL_LABEL),  VELORA_ITEM_CASE(E, UNKNOWN)};
}

enum class ItemControlChoiceType { CHECK_BOX, RADIO, SCENARIO, UNKNOWN };
constexpr auto enumCases(ItemControlChoiceType) {
  using E = ItemControlChoiceType;
  return std::array{VELORA_ITEM_CASE(E, CHECK_BOX), VELORA_ITEM_CASE(E, RADIO), VELORA_ITEM_CASE(E, SCENARIO),
                    VELORA_ITEM_CASE(E, UNKNOWN)};
}

enum class DirectionalRectEdge { bottom, leading, top, trailing, unknown };
constexpr auto enumCases(DirectionalRectEdge) {
  using E = DirectionalRectEdge;
  return std::array{VELORA_ITEM_CASE(E, bottom), VELORA_ITEM_CASE(E, leading), VELORA_ITEM_CASE(E, top),
                    VELORA_ITEM_CASE(E, trailing), VELORA_ITEM_CASE(E, unknown)};
}

#undef VELORA_ITEM_CASE

struct MobileIcon {
  std::string name;
  /// Alternative text.
  std::string alt;
  std::string lightPath;
  std::optional<std::string> darkPath;

  static constexpr std::string_view typeName = "MobileIcon";
  static constexpr auto fields() {
    using T = MobileIcon;
    return std::tuple{field("name", &T::name), field("alt", &T::alt), field("lightPath", &T::lightPath),
                      field("darkPath", &T::darkPath)};
  }
  friend bool operator==(const MobileIcon&, const MobileIcon&) = default;
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

  static constexpr std::string_view typeName = "BuildingPositionModel";
  static constexpr auto fields() {
    using T = BuildingPositionModel;
    return std::tuple{field("buildingId", &T::buildingId), field("buildingName", &T::buildingName), field("mapId", &T::mapId),
                      field("level", &T::level),           field("roomId", &T::roomId),             field("areaId", &T::areaId)};
  }
  friend bool operator==(const BuildingPositionModel&, const BuildingPositionModel&) = default;
};

/// A control's value. Every kind of value (on/off, a number, a choice) travels as text.
struct ItemCurrentValue {
  /// The id of this value on the server (not the item's id).
  int id = 0;
  std::optional<std::string> value;

  static constexpr std::string_view typeName = "ItemCurrentValue";
  static constexpr auto fields() {
    using T = ItemCurrentValue;
    return std::tuple{field("id", &T::id), field("value", &T::value)};
  }
  friend bool operator==(const ItemCurrentValue&, const ItemCurrentValue&) = default;
};

struct ItemChoiceOption {
  std::string name;
  std::optional<std::string> i18nName;
  /// The value sent when this option is chosen.
  std::string optionValue;
  std::optional<MobileIcon> optionIcon;

  static constexpr std::string_view typeName = "ItemChoiceOption";
  static constexpr auto fields() {
    using T = ItemChoiceOption;
    return std::tuple{field("name", &T::name), field("i18nName", &T::i18nName), field("optionValue", &T::optionValue),
                      field("optionIcon", &T::optionIcon)};
  }
  friend bool operator==(const ItemChoiceOption&, const ItemChoiceOption&) = default;
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

  static constexpr std::string_view typeName = "ItemControl";
  static constexpr auto fields() {
    using T = ItemControl;
    return std::tuple{field("name", &T::name),
                      field("i18nName", &T::i18nName),
                      field("type", &T::type),
                      field("currentValue", &T::currentValue_),
                      field("buttonValue", &T::buttonValue),
                      field("buttonIcon", &T::buttonIcon),
                      field("buttonIconPlacement", &T::buttonIconPlacement),
                      field("toggleOnValue", &T::toggleOnValue),
                      field("toggleOnIcon", &T::toggleOnIcon),
                      field("toggleOffValue", &T::toggleOffValue),
                      field("toggleOffIcon", &T::toggleOffIcon),
                      field("labelIcon", &T::labelIcon),
                      field("labelIconPlacement", &T::labelIconPlacement),
                      field("choiceType", &T::choiceType),
                      field("choiceOptions", &T::choiceOptions),
                      field("max", &T::max),
                      field("min", &T::min),
                      field("step", &T::step),
                      field("sliderMaxIcon", &T::sliderMaxIcon),
                      field("sliderMinIcon", &T::sliderMinIcon)};
  }
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

  static constexpr std::string_view typeName = "ItemControllable";
  static constexpr auto fields() {
    using T = ItemControllable;
    return std::tuple{field("id", &T::id),
                      field("logicName", &T::logicName),
                      field("widgetName", &T::widgetName),
                      field("name", &T::name),
                      field("type", &T::type),
                      field("position", &T::position),
                      field("buildingPositionList", &T::buildingPositionList),
                      field("icon", &T::icon),
                      field("controls", &T::controls)};
  }
  friend bool operator==(const ItemControllable& a, const ItemControllable& b) { return encode(a) == encode(b); }
};

/// Binds every control of `items` to `facade` (see ItemControl::bind).
void bindControls(std::vector<ItemControllable>& items, const std::weak_ptr<Orvane>& facade);

struct Control {
  std::string id;

  static constexpr std::string_view typeName = "Control";
  static constexpr auto fields() { return std::tuple{field("id", &Control::id)}; }
  friend bool operator==(const Control&, const Control&) = default;
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

  static constexpr std::string_view typeName = "ItemControllableFilter";
  static constexpr auto fields() {
    using T = ItemControllableFilter;
    return std::tuple{field("logicName", &T::logicName),     field("areaId", &T::areaId), field("roomId", &T::roomId),
                      field("mapId", &T::mapId),             field("referencePoint", &T::referencePoint),
                      field("radius", &T::radius),           field("hasPosition", &T::hasPosition),
                      field("widgetNames", &T::widgetNames), field("types", &T::types)};
  }
  friend bool operator==(const ItemControllableFilter&, const ItemControllableFilter&) = default;
};

struct ItemControllableRequest {
  std::optional<ItemControllableFilter> filter;

  static constexpr std::string_view typeName = "ItemControllableRequest";
  static constexpr auto fields() { return std::tuple{field("filter", &ItemControllableRequest::filter)}; }
  friend bool operator==(const ItemControllableRequest&, const ItemControllableRequest&) = default;
};

}  // namespace velora
