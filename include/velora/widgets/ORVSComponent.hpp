#pragma once
// Server-driven components: the ORVSComponent union and one record per component kind.
//
// Each record's JSON object holds the shared fields of ORVSBaseModel next to its own, and each
// record lists only its own fields; withBaseFields() puts the shared ones in front. Every field
// is optional unless noted. Where the server does not pin a member's shape down:
//  - members named like buttons (discardButton, nextButton, addButton...) and the entries of a
//    form's `buttons` are button records, a form's `sections` are section records and a
//    stepper's `steps` step records, each held by shared pointer so it can be observed too;
//  - `action` and the widget values (subValue, secondaryValue, value1, value2) and a date
//    constraint's `weekdays` keep whatever JSON arrives, as AnyCodable;
//  - the step flags (validated, filled, mandatory) are booleans; radius, min, max, step, timeStep,
//    minValue and maxValue are numbers and maxLength an integer; the remaining members, dates and
//    times of day included, are text.

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <variant>
#include <vector>

#include <velora/core/AnyCodable.hpp>
#include <velora/core/Record.hpp>
#include <velora/widgets/ComponentEnumerations.hpp>
#include <velora/widgets/ORVSBaseModel.hpp>

namespace velora {

struct ORVSButtonModel;
struct ORVSDatePickerModel;
struct ORVSDatePickerMultiModel;
struct ORVSInputTextModel;
struct ORVSInputNumberModel;
struct ORVSTimePickerModel;
struct ORVSSliderModel;
struct ORVSSectionModel;
struct ORVSFormModel;
struct ORVSStepperModel;
struct ORVSStepModel;
struct ORVSSelectorModel;
struct ORVSGenericSelectorModel;
struct ORVSPageReferenceModel;
struct ORVSWidgetBlurModel;
struct ORVSWidgetRadialModel;
struct ORVSWidgetBlurRadialModel;
struct ORVSWidgetVerticalModel;
struct ORVSWidgetDoubleValueModel;
struct ORVSWidgetSectionEditableModel;
struct ORVSWidgetSectionModel;
struct ORVSWidgetGroupModel;

namespace widgets_detail {
using Text = std::optional<std::string>;
using Flag = std::optional<bool>;
using Number = std::optional<double>;
using Value = std::optional<AnyCodable>;

template <class T, class V>
inline constexpr bool isAlternative = false;
template <class T, class... A>
inline constexpr bool isAlternative<T, std::variant<A...>> = (std::is_same_v<T, A> || ...);
}  // namespace widgets_detail

/// One component of any kind. A kind this library does not know decodes as UNSUPPORTED, which
/// keeps the object as received so that posting the card back does not lose it.
class ORVSComponent {
 public:
  struct Unsupported {
    AnyCodable json;
    friend bool operator==(const Unsupported&, const Unsupported&) = default;
  };

  using Case = std::variant<
      std::shared_ptr<ORVSButtonModel>, std::shared_ptr<ORVSDatePickerModel>, std::shared_ptr<ORVSDatePickerMultiModel>,
      std::shared_ptr<ORVSInputTextModel>, std::shared_ptr<ORVSInputNumberModel>, std::shared_ptr<ORVSTimePickerModel>,
      std::shared_ptr<ORVSSliderModel>, std::shared_ptr<ORVSSectionModel>, std::shared_ptr<ORVSFormModel>,
      std::shared_ptr<ORVSStepperModel>, std::shared_ptr<ORVSStepModel>, std::shared_ptr<ORVSSelectorModel>,
      std::shared_ptr<ORVSGenericSelectorModel>, std::shared_ptr<ORVSPageReferenceModel>,
      std::shared_ptr<ORVSWidgetBlurModel>, std::shared_ptr<ORVSWidgetRadialModel>,
      std::shared_ptr<ORVSWidgetBlurRadialModel>, std::shared_ptr<ORVSWidgetVerticalModel>,
      std::shared_ptr<ORVSWidgetDoubleValueModel>, std::shared_ptr<ORVSWidgetSectionEditableModel>,
      std::shared_ptr<ORVSWidgetSectionModel>, std::shared_ptr<ORVSWidgetGroupModel>, Unsupported>;

  template <class T>
  static constexpr bool isCase = widgets_detail::isAlternative<T, Case>;

  /// Wraps a record; throws std::invalid_argument for an empty pointer.
  template <class M>
    requires isCase<std::shared_ptr<M>>
  ORVSComponent(std::shared_ptr<M> model) : case_(std::in_place_type<std::shared_ptr<M>>, std::move(model)) {
    if (!std::get<std::shared_ptr<M>>(case_)) throwEmpty();
  }
  ORVSComponent(Unsupported unsupported) : case_(std::move(unsupported)) {}

  /// The kind of the case; `unknown` for UNSUPPORTED.
  ORVSComponentType type() const;
  bool isUnsupported() const { return std::holds_alternative<Unsupported>(case_); }

  /// The record when the case is of kind M, else null.
  template <class M>
  std::shared_ptr<M> as() const {
    const auto* model = std::get_if<std::shared_ptr<M>>(&case_);
    return model ? *model : nullptr;
  }
  /// The record through its shared fields; null for UNSUPPORTED.
  std::shared_ptr<ORVSBaseModel> base() const;
  /// The object as received, for UNSUPPORTED; else null.
  const AnyCodable* unsupportedJSON() const {
    const auto* u = std::get_if<Unsupported>(&case_);
    return u ? &u->json : nullptr;
  }

  const Case& value() const { return case_; }

  /// Compares the records' field values, not their identity.
  friend bool operator==(const ORVSComponent& a, const ORVSComponent& b);

 private:
  [[noreturn]] static void throwEmpty();
  Case case_;
};

namespace detail {

/// Decodes by the "type" key (required text) and encodes as the case's record with its "type";
/// UNSUPPORTED writes back the object it was read from.
template <>
struct Codec<ORVSComponent> {
  static AnyCodable encode(const ORVSComponent& component);
  static ORVSComponent decode(const AnyCodable& json, const JsonPath& path);
};

}  // namespace detail

using ORVSComponentList = std::vector<ORVSComponent>;

// ---- Constraint records ----------------------------------------------------------------------

struct ORVSDateContraintsModel {
  widgets_detail::Text minDate, maxDate;
  widgets_detail::Value weekdays;

  static constexpr std::string_view typeName = "ORVSDateContraintsModel";
  static constexpr auto fields() {
    using T = ORVSDateContraintsModel;
    return std::tuple{field("minDate", &T::minDate), field("maxDate", &T::maxDate), field("weekdays", &T::weekdays)};
  }
  friend bool operator==(const ORVSDateContraintsModel&, const ORVSDateContraintsModel&) = default;
};

struct ORVSInputTextContraintsModel {
  std::optional<ORVSInputTextType> type;
  widgets_detail::Text regex;
  std::optional<int> maxLength;

  static constexpr std::string_view typeName = "ORVSInputTextContraintsModel";
  static constexpr auto fields() {
    using T = ORVSInputTextContraintsModel;
    return std::tuple{field("type", &T::type), field("regex", &T::regex), field("maxLength", &T::maxLength)};
  }
  friend bool operator==(const ORVSInputTextContraintsModel&, const ORVSInputTextContraintsModel&) = default;
};

struct ORVSInputNumberContraintsModel {
  widgets_detail::Flag positive;
  widgets_detail::Number min, max, step;

  static constexpr std::string_view typeName = "ORVSInputNumberContraintsModel";
  static constexpr auto fields() {
    using T = ORVSInputNumberContraintsModel;
    return std::tuple{field("positive", &T::positive), field("min", &T::min), field("max", &T::max),
                      field("step", &T::step)};
  }
  friend bool operator==(const ORVSInputNumberContraintsModel&, const ORVSInputNumberContraintsModel&) = default;
};

/// Where a time picker fetches its free slots: the date component it follows and the slot API.
struct ORVSTimePickerSlotsModel {
  widgets_detail::Text dateComponentId, slotApi;

  static constexpr std::string_view typeName = "ORVSTimePickerSlotsModel";
  static constexpr auto fields() {
    using T = ORVSTimePickerSlotsModel;
    return std::tuple{field("dateComponentId", &T::dateComponentId), field("slotApi", &T::slotApi)};
  }
  friend bool operator==(const ORVSTimePickerSlotsModel&, const ORVSTimePickerSlotsModel&) = default;
};

struct ORVSTimePickerRangeModel {
  widgets_detail::Text minTime, maxTime;
  widgets_detail::Number timeStep;

  static constexpr std::string_view typeName = "ORVSTimePickerRangeModel";
  static constexpr auto fields() {
    using T = ORVSTimePickerRangeModel;
    return std::tuple{field("minTime", &T::minTime), field("maxTime", &T::maxTime), field("timeStep", &T::timeStep)};
  }
  friend bool operator==(const ORVSTimePickerRangeModel&, const ORVSTimePickerRangeModel&) = default;
};

struct ORVSTimePickerConstraintsModel {
  std::optional<ORVSTimePickerSlotsModel> slots;
  std::optional<ORVSTimePickerRangeModel> range;

  static constexpr std::string_view typeName = "ORVSTimePickerConstraintsModel";
  static constexpr auto fields() {
    using T = ORVSTimePickerConstraintsModel;
    return std::tuple{field("slots", &T::slots), field("range", &T::range)};
  }
  friend bool operator==(const ORVSTimePickerConstraintsModel&, const ORVSTimePickerConstraintsModel&) = default;
};

struct ORVSSliderContraint {
  widgets_detail::Number min, max, step;
  widgets_detail::Flag percentage;

  static constexpr std::string_view typeName = "ORVSSliderContraint";
  static constexpr auto fields() {
    using T = ORVSSliderContraint;
    return std::tuple{field("min", &T::min), field("max", &T::max), field("step", &T::step),
                      field("percentage", &T::percentage)};
  }
  friend bool operator==(const ORVSSliderContraint&, const ORVSSliderContraint&) = default;
};

/// How many entries a selector lets the user pick.
struct ORVSSelectorContraints {
  widgets_detail::Number minValue, maxValue;

  static constexpr std::string_view typeName = "ORVSSelectorContraints";
  static constexpr auto fields() {
    using T = ORVSSelectorContraints;
    return std::tuple{field("minValue", &T::minValue), field("maxValue", &T::maxValue)};
  }
  friend bool operator==(const ORVSSelectorContraints&, const ORVSSelectorContraints&) = default;
};

// ---- Component records -----------------------------------------------------------------------

struct ORVSButtonModel : ORVSComponentModel<ORVSButtonModel, ORVSComponentType::BUTTON> {
  std::optional<ORVSButtonStyle> buttonStyle;
  widgets_detail::Text icon, iconLeft;
  widgets_detail::Value action;

  static constexpr std::string_view typeName = "ORVSButtonModel";
  static constexpr auto fields() {
    using T = ORVSButtonModel;
    return withBaseFields(field("buttonStyle", &T::buttonStyle), field("icon", &T::icon), field("iconLeft", &T::iconLeft),
                          field("action", &T::action));
  }
};

/// The single- and multi-date pickers share one shape.
template <class Self, ORVSComponentType Kind>
struct ORVSDatePickerFields : ORVSComponentModel<Self, Kind> {
  widgets_detail::Text placeholder, i18nPlaceholder, helper, i18nHelper, info, i18nInfo, icon;
  widgets_detail::Flag required;
  std::optional<ORVSDateContraintsModel> constraints;

  static constexpr auto fields() {
    using T = ORVSDatePickerFields;
    return ORVSComponentModel<Self, Kind>::withBaseFields(
        field("placeholder", &T::placeholder), field("i18nPlaceholder", &T::i18nPlaceholder),
        field("helper", &T::helper), field("i18nHelper", &T::i18nHelper), field("info", &T::info),
        field("i18nInfo", &T::i18nInfo), field("icon", &T::icon), field("required", &T::required),
        field("constraints", &T::constraints));
  }
};

struct ORVSDatePickerModel : ORVSDatePickerFields<ORVSDatePickerModel, ORVSComponentType::DATEPICKER> {
  static constexpr std::string_view typeName = "ORVSDatePickerModel";
};

struct ORVSDatePickerMultiModel : ORVSDatePickerFields<ORVSDatePickerMultiModel, ORVSComponentType::DATEPICKER_MULTI> {
  static constexpr std::string_view typeName = "ORVSDatePickerMultiModel";
};

struct ORVSInputTextModel : ORVSComponentModel<ORVSInputTextModel, ORVSComponentType::INPUT_TEXT> {
  widgets_detail::Text placeholder, i18nPlaceholder, helper, i18nHelper, info, i18nInfo, icon, iconLeft;
  widgets_detail::Flag required;
  std::optional<ORVSInputTextContraintsModel> constraints;

  static constexpr std::string_view typeName = "ORVSInputTextModel";
  static constexpr auto fields() {
    using T = ORVSInputTextModel;
    return withBaseFields(field("placeholder", &T::placeholder), field("i18nPlaceholder", &T::i18nPlaceholder),
                          field("helper", &T::helper), field("i18nHelper", &T::i18nHelper), field("info", &T::info),
                          field("i18nInfo", &T::i18nInfo), field("icon", &T::icon), field("iconLeft", &T::iconLeft),
                          field("required", &T::required), field("constraints", &T::constraints));
  }
};

struct ORVSInputNumberModel : ORVSComponentModel<ORVSInputNumberModel, ORVSComponentType::INPUT_NUMBER> {
  widgets_detail::Text placeholder, i18nPlaceholder, helper, i18nHelper, helperRight, i18nHelperRight, info, i18nInfo,
      icon, iconLeft;
  widgets_detail::Flag required;
  std::optional<ORVSInputNumberContraintsModel> constraints;

  static constexpr std::string_view typeName = "ORVSInputNumberModel";
  static constexpr auto fields() {
    using T = ORVSInputNumberModel;
    return withBaseFields(field("placeholder", &T::placeholder), field("i18nPlaceholder", &T::i18nPlaceholder),
                          field("helper", &T::helper), field("i18nHelper", &T::i18nHelper),
                          field("helperRight", &T::helperRight), field("i18nHelperRight", &T::i18nHelperRight),
                          field("info", &T::info), field("i18nInfo", &T::i18nInfo), field("icon", &T::icon),
                          field("iconLeft", &T::iconLeft), field("required", &T::required),
                          field("constraints", &T::constraints));
  }
};

struct ORVSTimePickerModel : ORVSComponentModel<ORVSTimePickerModel, ORVSComponentType::TIMEPICKER> {
  widgets_detail::Text placeholder, i18nPlaceholder, helper, i18nHelper, info, i18nInfo, icon;
  widgets_detail::Flag required;
  std::optional<ORVSTimePickerConstraintsModel> constraints;

  static constexpr std::string_view typeName = "ORVSTimePickerModel";
  static constexpr auto fields() {
    using T = ORVSTimePickerModel;
    return withBaseFields(field("placeholder", &T::placeholder), field("i18nPlaceholder", &T::i18nPlaceholder),
                          field("helper", &T::helper), field("i18nHelper", &T::i18nHelper), field("info", &T::info),
                          field("i18nInfo", &T::i18nInfo), field("icon", &T::icon), field("required", &T::required),
                          field("constraints", &T::constraints));
  }
};

struct ORVSSliderModel : ORVSComponentModel<ORVSSliderModel, ORVSComponentType::SLIDER> {
  widgets_detail::Text lowText, i18nLowText, highText, i18nHighText, barColor;
  widgets_detail::Flag barGradient, barHue, required;
  widgets_detail::Value action;
  std::optional<ORVSSliderContraint> constraints;

  static constexpr std::string_view typeName = "ORVSSliderModel";
  static constexpr auto fields() {
    using T = ORVSSliderModel;
    return withBaseFields(field("lowText", &T::lowText), field("i18nLowText", &T::i18nLowText),
                          field("highText", &T::highText), field("i18nHighText", &T::i18nHighText),
                          field("barColor", &T::barColor), field("barGradient", &T::barGradient),
                          field("barHue", &T::barHue), field("required", &T::required), field("action", &T::action),
                          field("constraints", &T::constraints));
  }
};

struct ORVSSectionModel : ORVSComponentModel<ORVSSectionModel, ORVSComponentType::SECTION> {
  widgets_detail::Flag completion;
  std::optional<ORVSComponentList> components;

  static constexpr std::string_view typeName = "ORVSSectionModel";
  static constexpr auto fields() {
    using T = ORVSSectionModel;
    return withBaseFields(field("completion", &T::completion), field("components", &T::components));
  }
};

struct ORVSFormModel : ORVSComponentModel<ORVSFormModel, ORVSComponentType::FORM> {
  std::optional<std::vector<std::shared_ptr<ORVSSectionModel>>> sections;
  std::optional<std::vector<std::shared_ptr<ORVSButtonModel>>> buttons;
  widgets_detail::Flag submitOnChange, isRealTime;

  static constexpr std::string_view typeName = "ORVSFormModel";
  static constexpr auto fields() {
    using T = ORVSFormModel;
    return withBaseFields(field("sections", &T::sections), field("buttons", &T::buttons),
                          field("submitOnChange", &T::submitOnChange), field("isRealTime", &T::isRealTime));
  }
};

struct ORVSStepModel : ORVSComponentModel<ORVSStepModel, ORVSComponentType::STEP> {
  widgets_detail::Text description, i18nDescription;
  widgets_detail::Flag validated, filled, mandatory;
  std::shared_ptr<ORVSButtonModel> nextButton, backButton;

  static constexpr std::string_view typeName = "ORVSStepModel";
  static constexpr auto fields() {
    using T = ORVSStepModel;
    return withBaseFields(field("description", &T::description), field("i18nDescription", &T::i18nDescription),
                          field("validated", &T::validated), field("filled", &T::filled),
                          field("mandatory", &T::mandatory), field("nextButton", &T::nextButton),
                          field("backButton", &T::backButton));
  }
};

struct ORVSStepperModel : ORVSComponentModel<ORVSStepperModel, ORVSComponentType::STEPPER> {
  widgets_detail::Text description, i18nDescription;
  std::shared_ptr<ORVSButtonModel> discardButton;
  std::optional<std::vector<std::shared_ptr<ORVSStepModel>>> steps;

  static constexpr std::string_view typeName = "ORVSStepperModel";
  static constexpr auto fields() {
    using T = ORVSStepperModel;
    return withBaseFields(field("description", &T::description), field("i18nDescription", &T::i18nDescription),
                          field("discardButton", &T::discardButton), field("steps", &T::steps));
  }
};

struct ORVSSelectorModel : ORVSComponentModel<ORVSSelectorModel, ORVSComponentType::SELECTOR> {
  widgets_detail::Text helper, i18nHelper, info, i18nInfo, icon;
  widgets_detail::Flag required;
  widgets_detail::Value action;
  std::optional<ORVSSelectorContraints> constraints;

  static constexpr std::string_view typeName = "ORVSSelectorModel";
  static constexpr auto fields() {
    using T = ORVSSelectorModel;
    return withBaseFields(field("helper", &T::helper), field("i18nHelper", &T::i18nHelper), field("info", &T::info),
                          field("i18nInfo", &T::i18nInfo), field("icon", &T::icon), field("required", &T::required),
                          field("action", &T::action), field("constraints", &T::constraints));
  }
};

struct ORVSGenericSelectorModel : ORVSComponentModel<ORVSGenericSelectorModel, ORVSComponentType::GENERIC_SELECTOR> {
  widgets_detail::Text selectorIdentifier;
  widgets_detail::Flag required;
  std::optional<ORVSSelectorContraints> constraints;

  static constexpr std::string_view typeName = "ORVSGenericSelectorModel";
  static constexpr auto fields() {
    using T = ORVSGenericSelectorModel;
    return withBaseFields(field("selectorIdentifier", &T::selectorIdentifier), field("required", &T::required),
                          field("constraints", &T::constraints));
  }
};

struct ORVSPageReferenceModel : ORVSComponentModel<ORVSPageReferenceModel, ORVSComponentType::PAGE_REFERENCE> {
  widgets_detail::Text reference;

  static constexpr std::string_view typeName = "ORVSPageReferenceModel";
  static constexpr auto fields() { return withBaseFields(field("reference", &ORVSPageReferenceModel::reference)); }
};

struct ORVSWidgetBlurModel : ORVSComponentModel<ORVSWidgetBlurModel, ORVSComponentType::WIDGET_BLUR> {
  widgets_detail::Number radius;
  widgets_detail::Text color, mainValue, i18nMainValue, subValueText, i18nSubValueText;
  widgets_detail::Value subValue;

  static constexpr std::string_view typeName = "ORVSWidgetBlurModel";
  static constexpr auto fields() {
    using T = ORVSWidgetBlurModel;
    return withBaseFields(field("radius", &T::radius), field("color", &T::color), field("mainValue", &T::mainValue),
                          field("i18nMainValue", &T::i18nMainValue), field("subValueText", &T::subValueText),
                          field("i18nSubValueText", &T::i18nSubValueText), field("subValue", &T::subValue));
  }
};

struct ORVSWidgetRadialModel : ORVSComponentModel<ORVSWidgetRadialModel, ORVSComponentType::WIDGET_RADIAL> {
  widgets_detail::Text lowText, i18nLowText, highText, i18nHighText, mainValue, i18nMainValue, subValueText,
      i18nSubValueText, barColor;
  widgets_detail::Flag barHue;
  widgets_detail::Value subValue;
  widgets_detail::Text error, i18nError;
  widgets_detail::Value secondaryValue;

  static constexpr std::string_view typeName = "ORVSWidgetRadialModel";
  static constexpr auto fields() {
    using T = ORVSWidgetRadialModel;
    return withBaseFields(field("lowText", &T::lowText), field("i18nLowText", &T::i18nLowText),
                          field("highText", &T::highText), field("i18nHighText", &T::i18nHighText),
                          field("mainValue", &T::mainValue), field("i18nMainValue", &T::i18nMainValue),
                          field("subValueText", &T::subValueText), field("i18nSubValueText", &T::i18nSubValueText),
                          field("barColor", &T::barColor), field("barHue", &T::barHue), field("subValue", &T::subValue),
                          field("error", &T::error), field("i18nError", &T::i18nError),
                          field("secondaryValue", &T::secondaryValue));
  }
};

struct ORVSWidgetBlurRadialModel : ORVSComponentModel<ORVSWidgetBlurRadialModel, ORVSComponentType::WIDGET_BLUR_RADIAL> {
  widgets_detail::Number radius;
  widgets_detail::Text mainValue, i18nMainValue, subValueText, i18nSubValueText, barColor;
  widgets_detail::Value subValue;
  widgets_detail::Text error, i18nError;

  static constexpr std::string_view typeName = "ORVSWidgetBlurRadialModel";
  static constexpr auto fields() {
    using T = ORVSWidgetBlurRadialModel;
    return withBaseFields(field("radius", &T::radius), field("mainValue", &T::mainValue),
                          field("i18nMainValue", &T::i18nMainValue), field("subValueText", &T::subValueText),
                          field("i18nSubValueText", &T::i18nSubValueText), field("barColor", &T::barColor),
                          field("subValue", &T::subValue), field("error", &T::error), field("i18nError", &T::i18nError));
  }
};

struct ORVSWidgetVerticalModel : ORVSComponentModel<ORVSWidgetVerticalModel, ORVSComponentType::WIDGET_VERTICAL> {
  widgets_detail::Number radius;
  widgets_detail::Text barColor;
  widgets_detail::Flag barHue;
  widgets_detail::Value value1, value2;

  static constexpr std::string_view typeName = "ORVSWidgetVerticalModel";
  static constexpr auto fields() {
    using T = ORVSWidgetVerticalModel;
    return withBaseFields(field("radius", &T::radius), field("barColor", &T::barColor), field("barHue", &T::barHue),
                          field("value1", &T::value1), field("value2", &T::value2));
  }
};

struct ORVSWidgetDoubleValueModel
    : ORVSComponentModel<ORVSWidgetDoubleValueModel, ORVSComponentType::WIDGET_DOUBLE_VALUE> {
  widgets_detail::Number radius;
  widgets_detail::Value value1, value2;

  static constexpr std::string_view typeName = "ORVSWidgetDoubleValueModel";
  static constexpr auto fields() {
    using T = ORVSWidgetDoubleValueModel;
    return withBaseFields(field("radius", &T::radius), field("value1", &T::value1), field("value2", &T::value2));
  }
};

struct ORVSWidgetSectionEditableModel
    : ORVSComponentModel<ORVSWidgetSectionEditableModel, ORVSComponentType::WIDGET_SECTION_EDITABLE> {
  std::optional<ORVSComponentList> components;
  std::optional<ORVSWidgetScrollDirection> scroll;
  widgets_detail::Flag counter;
  std::shared_ptr<ORVSButtonModel> addButton, orderButton, manageButton, saveButton;

  static constexpr std::string_view typeName = "ORVSWidgetSectionEditableModel";
  static constexpr auto fields() {
    using T = ORVSWidgetSectionEditableModel;
    return withBaseFields(field("components", &T::components), field("scroll", &T::scroll), field("counter", &T::counter),
                          field("addButton", &T::addButton), field("orderButton", &T::orderButton),
                          field("manageButton", &T::manageButton), field("saveButton", &T::saveButton));
  }
};

struct ORVSWidgetSectionModel : ORVSComponentModel<ORVSWidgetSectionModel, ORVSComponentType::WIDGET_SECTION> {
  std::optional<ORVSComponentList> components;
  std::optional<ORVSWidgetScrollDirection> scroll;
  widgets_detail::Flag counter;
  widgets_detail::Text noElementsText, i18nNoElementsText, noElementsSubText, i18nNoElementsSubText;

  static constexpr std::string_view typeName = "ORVSWidgetSectionModel";
  static constexpr auto fields() {
    using T = ORVSWidgetSectionModel;
    return withBaseFields(field("components", &T::components), field("scroll", &T::scroll), field("counter", &T::counter),
                          field("noElementsText", &T::noElementsText), field("i18nNoElementsText", &T::i18nNoElementsText),
                          field("noElementsSubText", &T::noElementsSubText),
                          field("i18nNoElementsSubText", &T::i18nNoElementsSubText));
  }
};

struct ORVSWidgetGroupModel : ORVSComponentModel<ORVSWidgetGroupModel, ORVSComponentType::WIDGET_GROUP> {
  widgets_detail::Number radius;
  std::optional<std::vector<std::string>> icons;

  static constexpr std::string_view typeName = "ORVSWidgetGroupModel";
  static constexpr auto fields() {
    using T = ORVSWidgetGroupModel;
    return withBaseFields(field("radius", &T::radius), field("icons", &T::icons));
  }
};

}  // namespace velora
