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

namespace detail {
using Text = std::optional<std::string>;
using Flag = std::optional<bool>;
using Number = std::optional<double>;
using Value = std::optional<AnyCodable>;

template <class T, class V>
inline constexpr bool isAlternative = false;
template <class T, class... A>
inline constexpr bool isAlternative<T, std::variant<A...>> = (std::is_same_v<T, A> || ...);
}  // namespace detail

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
  static constexpr bool isCase = detail::isAlternative<T, Case>;

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
  detail::Text minDate, maxDate;
  detail::Value weekdays;

  VELORA_RECORD(ORVSDateContraintsModel, minDate, maxDate, weekdays);
};

struct ORVSInputTextContraintsModel {
  std::optional<ORVSInputTextType> type;
  detail::Text regex;
  std::optional<int> maxLength;

  VELORA_RECORD(ORVSInputTextContraintsModel, type, regex, maxLength);
};

struct ORVSInputNumberContraintsModel {
  detail::Flag positive;
  detail::Number min, max, step;

  VELORA_RECORD(ORVSInputNumberContraintsModel, positive, min, max, step);
};

/// Where a time picker fetches its free slots: the date component it follows and the slot API.
struct ORVSTimePickerSlotsModel {
  detail::Text dateComponentId, slotApi;

  VELORA_RECORD(ORVSTimePickerSlotsModel, dateComponentId, slotApi);
};

struct ORVSTimePickerRangeModel {
  detail::Text minTime, maxTime;
  detail::Number timeStep;

  VELORA_RECORD(ORVSTimePickerRangeModel, minTime, maxTime, timeStep);
};

struct ORVSTimePickerConstraintsModel {
  std::optional<ORVSTimePickerSlotsModel> slots;
  std::optional<ORVSTimePickerRangeModel> range;

  VELORA_RECORD(ORVSTimePickerConstraintsModel, slots, range);
};

struct ORVSSliderContraint {
  detail::Number min, max, step;
  detail::Flag percentage;

  VELORA_RECORD(ORVSSliderContraint, min, max, step, percentage);
};

/// How many entries a selector lets the user pick.
struct ORVSSelectorContraints {
  detail::Number minValue, maxValue;

  VELORA_RECORD(ORVSSelectorContraints, minValue, maxValue);
};

// ---- Component records -----------------------------------------------------------------------

struct ORVSButtonModel : ORVSComponentModel<ORVSButtonModel, ORVSComponentType::BUTTON> {
  std::optional<ORVSButtonStyle> buttonStyle;
  detail::Text icon, iconLeft;
  detail::Value action;

  VELORA_FIELDS(ORVSButtonModel, buttonStyle, icon, iconLeft, action);
};

/// The single- and multi-date pickers share one shape.
template <class Self, ORVSComponentType Kind>
struct ORVSDatePickerFields : ORVSComponentModel<Self, Kind> {
  detail::Text placeholder, i18nPlaceholder, helper, i18nHelper, info, i18nInfo, icon;
  detail::Flag required;
  std::optional<ORVSDateContraintsModel> constraints;

  VELORA_FIELD_TABLE(ORVSDatePickerFields, placeholder, i18nPlaceholder, helper, i18nHelper, info, i18nInfo, icon,
      required, constraints);
};

struct ORVSDatePickerModel : ORVSDatePickerFields<ORVSDatePickerModel, ORVSComponentType::DATEPICKER> {
  static constexpr std::string_view typeName = "ORVSDatePickerModel";
};

struct ORVSDatePickerMultiModel : ORVSDatePickerFields<ORVSDatePickerMultiModel, ORVSComponentType::DATEPICKER_MULTI> {
  static constexpr std::string_view typeName = "ORVSDatePickerMultiModel";
};

struct ORVSInputTextModel : ORVSComponentModel<ORVSInputTextModel, ORVSComponentType::INPUT_TEXT> {
  detail::Text placeholder, i18nPlaceholder, helper, i18nHelper, info, i18nInfo, icon, iconLeft;
  detail::Flag required;
  std::optional<ORVSInputTextContraintsModel> constraints;

  VELORA_FIELDS(ORVSInputTextModel, placeholder, i18nPlaceholder, helper, i18nHelper, info, i18nInfo, icon, iconLeft,
      required, constraints);
};

struct ORVSInputNumberModel : ORVSComponentModel<ORVSInputNumberModel, ORVSComponentType::INPUT_NUMBER> {
  detail::Text placeholder, i18nPlaceholder, helper, i18nHelper, helperRight, i18nHelperRight, info, i18nInfo,
      icon, iconLeft;
  detail::Flag required;
  std::optional<ORVSInputNumberContraintsModel> constraints;

  VELORA_FIELDS(ORVSInputNumberModel, placeholder, i18nPlaceholder, helper, i18nHelper, helperRight, i18nHelperRight,
      info, i18nInfo, icon, iconLeft, required, constraints);
};

struct ORVSTimePickerModel : ORVSComponentModel<ORVSTimePickerModel, ORVSComponentType::TIMEPICKER> {
  detail::Text placeholder, i18nPlaceholder, helper, i18nHelper, info, i18nInfo, icon;
  detail::Flag required;
  std::optional<ORVSTimePickerConstraintsModel> constraints;

  VELORA_FIELDS(ORVSTimePickerModel, placeholder, i18nPlaceholder, helper, i18nHelper, info, i18nInfo, icon, required,
      constraints);
};

struct ORVSSliderModel : ORVSComponentModel<ORVSSliderModel, ORVSComponentType::SLIDER> {
  detail::Text lowText, i18nLowText, highText, i18nHighText, barColor;
  detail::Flag barGradient, barHue, required;
  detail::Value action;
  std::optional<ORVSSliderContraint> constraints;

  VELORA_FIELDS(ORVSSliderModel, lowText, i18nLowText, highText, i18nHighText, barColor, barGradient, barHue, required,
      action, constraints);
};

struct ORVSSectionModel : ORVSComponentModel<ORVSSectionModel, ORVSComponentType::SECTION> {
  detail::Flag completion;
  std::optional<ORVSComponentList> components;

  VELORA_FIELDS(ORVSSectionModel, completion, components);
};

struct ORVSFormModel : ORVSComponentModel<ORVSFormModel, ORVSComponentType::FORM> {
  std::optional<std::vector<std::shared_ptr<ORVSSectionModel>>> sections;
  std::optional<std::vector<std::shared_ptr<ORVSButtonModel>>> buttons;
  detail::Flag submitOnChange, isRealTime;

  VELORA_FIELDS(ORVSFormModel, sections, buttons, submitOnChange, isRealTime);
};

struct ORVSStepModel : ORVSComponentModel<ORVSStepModel, ORVSComponentType::STEP> {
  detail::Text description, i18nDescription;
  detail::Flag validated, filled, mandatory;
  std::shared_ptr<ORVSButtonModel> nextButton, backButton;

  VELORA_FIELDS(ORVSStepModel, description, i18nDescription, validated, filled, mandatory, nextButton, backButton);
};

struct ORVSStepperModel : ORVSComponentModel<ORVSStepperModel, ORVSComponentType::STEPPER> {
  detail::Text description, i18nDescription;
  std::shared_ptr<ORVSButtonModel> discardButton;
  std::optional<std::vector<std::shared_ptr<ORVSStepModel>>> steps;

  VELORA_FIELDS(ORVSStepperModel, description, i18nDescription, discardButton, steps);
};

struct ORVSSelectorModel : ORVSComponentModel<ORVSSelectorModel, ORVSComponentType::SELECTOR> {
  detail::Text helper, i18nHelper, info, i18nInfo, icon;
  detail::Flag required;
  detail::Value action;
  std::optional<ORVSSelectorContraints> constraints;

  VELORA_FIELDS(ORVSSelectorModel, helper, i18nHelper, info, i18nInfo, icon, required, action, constraints);
};

struct ORVSGenericSelectorModel : ORVSComponentModel<ORVSGenericSelectorModel, ORVSComponentType::GENERIC_SELECTOR> {
  detail::Text selectorIdentifier;
  detail::Flag required;
  std::optional<ORVSSelectorContraints> constraints;

  VELORA_FIELDS(ORVSGenericSelectorModel, selectorIdentifier, required, constraints);
};

struct ORVSPageReferenceModel : ORVSComponentModel<ORVSPageReferenceModel, ORVSComponentType::PAGE_REFERENCE> {
  detail::Text reference;

  VELORA_FIELDS(ORVSPageReferenceModel, reference);
};

struct ORVSWidgetBlurModel : ORVSComponentModel<ORVSWidgetBlurModel, ORVSComponentType::WIDGET_BLUR> {
  detail::Number radius;
  detail::Text color, mainValue, i18nMainValue, subValueText, i18nSubValueText;
  detail::Value subValue;

  VELORA_FIELDS(ORVSWidgetBlurModel, radius, color, mainValue, i18nMainValue, subValueText, i18nSubValueText, subValue);
};

struct ORVSWidgetRadialModel : ORVSComponentModel<ORVSWidgetRadialModel, ORVSComponentType::WIDGET_RADIAL> {
  detail::Text lowText, i18nLowText, highText, i18nHighText, mainValue, i18nMainValue, subValueText,
      i18nSubValueText, barColor;
  detail::Flag barHue;
  detail::Value subValue;
  detail::Text error, i18nError;
  detail::Value secondaryValue;

  VELORA_FIELDS(ORVSWidgetRadialModel, lowText, i18nLowText, highText, i18nHighText, mainValue, i18nMainValue,
      subValueText, i18nSubValueText, barColor, barHue, subValue, error, i18nError, secondaryValue);
};

struct ORVSWidgetBlurRadialModel : ORVSComponentModel<ORVSWidgetBlurRadialModel, ORVSComponentType::WIDGET_BLUR_RADIAL> {
  detail::Number radius;
  detail::Text mainValue, i18nMainValue, subValueText, i18nSubValueText, barColor;
  detail::Value subValue;
  detail::Text error, i18nError;

  VELORA_FIELDS(ORVSWidgetBlurRadialModel, radius, mainValue, i18nMainValue, subValueText, i18nSubValueText, barColor,
      subValue, error, i18nError);
};

struct ORVSWidgetVerticalModel : ORVSComponentModel<ORVSWidgetVerticalModel, ORVSComponentType::WIDGET_VERTICAL> {
  detail::Number radius;
  detail::Text barColor;
  detail::Flag barHue;
  detail::Value value1, value2;

  VELORA_FIELDS(ORVSWidgetVerticalModel, radius, barColor, barHue, value1, value2);
};

struct ORVSWidgetDoubleValueModel
    : ORVSComponentModel<ORVSWidgetDoubleValueModel, ORVSComponentType::WIDGET_DOUBLE_VALUE> {
  detail::Number radius;
  detail::Value value1, value2;

  VELORA_FIELDS(ORVSWidgetDoubleValueModel, radius, value1, value2);
};

struct ORVSWidgetSectionEditableModel
    : ORVSComponentModel<ORVSWidgetSectionEditableModel, ORVSComponentType::WIDGET_SECTION_EDITABLE> {
  std::optional<ORVSComponentList> components;
  std::optional<ORVSWidgetScrollDirection> scroll;
  detail::Flag counter;
  std::shared_ptr<ORVSButtonModel> addButton, orderButton, manageButton, saveButton;

  VELORA_FIELDS(ORVSWidgetSectionEditableModel, components, scroll, counter, addButton, orderButton, manageButton,
      saveButton);
};

struct ORVSWidgetSectionModel : ORVSComponentModel<ORVSWidgetSectionModel, ORVSComponentType::WIDGET_SECTION> {
  std::optional<ORVSComponentList> components;
  std::optional<ORVSWidgetScrollDirection> scroll;
  detail::Flag counter;
  detail::Text noElementsText, i18nNoElementsText, noElementsSubText, i18nNoElementsSubText;

  VELORA_FIELDS(ORVSWidgetSectionModel, components, scroll, counter, noElementsText, i18nNoElementsText,
      noElementsSubText, i18nNoElementsSubText);
};

struct ORVSWidgetGroupModel : ORVSComponentModel<ORVSWidgetGroupModel, ORVSComponentType::WIDGET_GROUP> {
  detail::Number radius;
  std::optional<std::vector<std::string>> icons;

  VELORA_FIELDS(ORVSWidgetGroupModel, radius, icons);
};

}  // namespace velora
