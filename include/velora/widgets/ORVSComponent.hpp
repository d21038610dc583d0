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
/// keeps the object as received so that posting the card back does not lose it. Copies share the
/// record: a component is a handle on one std::shared_ptr, so what one copy sets the others see.
class ORVSComponent {
 public:
  /// A component of a kind this library does not know, kept whole.
  struct Unsupported {
    AnyCodable json;  ///< The object as received, "type" included; written back unchanged.
    friend bool operator==(const Unsupported&, const Unsupported&) = default;
  };

  /// A shared record pointer per kind, in ORVSComponentType order, then Unsupported. A record
  /// case never holds an empty pointer.
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

  /// Whether T (a `std::shared_ptr` to a component record, or Unsupported) is one of the cases.
  template <class T>
  static constexpr bool isCase = detail::isAlternative<T, Case>;

  /// @{
  /// Wraps a record, sharing it rather than copying it, or an unknown kind's object. Implicit, so a
  /// record pointer can go straight into an ORVSComponentList. Throws std::invalid_argument for an
  /// empty pointer.
  template <class M>
    requires isCase<std::shared_ptr<M>>
  ORVSComponent(std::shared_ptr<M> model) : case_(std::in_place_type<std::shared_ptr<M>>, std::move(model)) {
    if (!std::get<std::shared_ptr<M>>(case_)) throwEmpty();
  }
  ORVSComponent(Unsupported unsupported) : case_(std::move(unsupported)) {}
  /// @}

  /// The kind of the case; `unknown` for UNSUPPORTED.
  ORVSComponentType type() const;
  /// Whether the kind was unknown, so that only the JSON object is kept.
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

  /// The case itself, for std::visit.
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

/// Components in display order, as sections hold them and Orvane::getWidgetsHome() returns them.
using ORVSComponentList = std::vector<ORVSComponent>;

// ---- Constraint records ----------------------------------------------------------------------

/// Which dates a date picker offers. ("Contraints" is spelled as the platform names the record.)
struct ORVSDateContraintsModel {
  /// @{
  /// The first and last dates offered, as text in the server's format (such as "2024-05-01");
  /// absent for no bound.
  detail::Text minDate, maxDate;
  /// @}
  /// The days of the week offered, kept as the JSON received (a list of day numbers such as
  /// [1,2,3,4,5]); absent when not sent.
  detail::Value weekdays;

  VELORA_RECORD(ORVSDateContraintsModel, minDate, maxDate, weekdays);
};

/// What an input-text component accepts.
struct ORVSInputTextContraintsModel {
  /// The kind of text to check for (an e-mail address or a URL); absent for free text.
  std::optional<ORVSInputTextType> type;
  /// A regular expression the text must match, in the server's syntax; absent for none.
  detail::Text regex;
  std::optional<int> maxLength;  ///< The most characters allowed (an integer); absent for no limit.

  VELORA_RECORD(ORVSInputTextContraintsModel, type, regex, maxLength);
};

/// What an input-number component accepts.
struct ORVSInputNumberContraintsModel {
  detail::Flag positive;  ///< Whether the number must be positive; absent when the server does not say.
  /// @{
  /// The lowest and highest values allowed and the increment between allowed values (numbers, in
  /// the unit of the field); each absent for no bound or no step.
  detail::Number min, max, step;
  /// @}

  VELORA_RECORD(ORVSInputNumberContraintsModel, positive, min, max, step);
};

/// Where a time picker fetches its free slots: the date component it follows and the slot API.
struct ORVSTimePickerSlotsModel {
  /// @{
  /// `dateComponentId` is the `componentId` of the date picker whose chosen day the slots are for;
  /// `slotApi` the server path that lists the free slots (such as "/rooms/12/slots"). Absent when
  /// not sent.
  detail::Text dateComponentId, slotApi;
  /// @}

  VELORA_RECORD(ORVSTimePickerSlotsModel, dateComponentId, slotApi);
};

/// A fixed range of times a time picker offers: from `minTime` to `maxTime`, every `timeStep`.
struct ORVSTimePickerRangeModel {
  /// @{
  /// The earliest and latest times of day offered, as text such as "08:00"; absent for no bound.
  detail::Text minTime, maxTime;
  /// @}
  /// The step between offered times, a number as the server sends it (such as 15); absent when not
  /// sent.
  detail::Number timeStep;

  VELORA_RECORD(ORVSTimePickerRangeModel, minTime, maxTime, timeStep);
};

/// Which times a time picker offers: free slots fetched from the server, a fixed range, or both.
struct ORVSTimePickerConstraintsModel {
  std::optional<ORVSTimePickerSlotsModel> slots;  ///< Where to fetch free slots; absent for none.
  std::optional<ORVSTimePickerRangeModel> range;  ///< The fixed range; absent for none.

  VELORA_RECORD(ORVSTimePickerConstraintsModel, slots, range);
};

/// The scale of a slider.
struct ORVSSliderContraint {
  /// @{
  /// The ends of the scale and the increment between its values (numbers, such as 0, 100 and 5);
  /// each absent when not sent.
  detail::Number min, max, step;
  /// @}
  detail::Flag percentage;  ///< Whether the value reads as a percentage; absent when not sent.

  VELORA_RECORD(ORVSSliderContraint, min, max, step, percentage);
};

/// How many entries a selector lets the user pick.
struct ORVSSelectorContraints {
  /// @{
  /// The fewest and the most entries the user may pick (numbers); absent for no bound.
  detail::Number minValue, maxValue;
  /// @}

  VELORA_RECORD(ORVSSelectorContraints, minValue, maxValue);
};

// ---- Component records -----------------------------------------------------------------------

/// A button; its label is the shared `name`. It stands alone, or serves a form, a step or a
/// stepper, or an editable widget section.
struct ORVSButtonModel : ORVSComponentModel<ORVSButtonModel, ORVSComponentType::BUTTON> {
  std::optional<ORVSButtonStyle> buttonStyle;  ///< How it looks; absent when the server leaves it open.
  /// @{
  /// Icon names: `icon` the button's icon, `iconLeft` one shown before the label; absent for none.
  detail::Text icon, iconLeft;
  /// @}
  /// What pressing it does, as the JSON received (a text or an object, as the server shapes it),
  /// for the application to carry out; absent for none.
  detail::Value action;

  VELORA_FIELDS(ORVSButtonModel, buttonStyle, icon, iconLeft, action);
};

/// The single- and multi-date pickers share one shape.
template <class Self, ORVSComponentType Kind>
struct ORVSDatePickerFields : ORVSComponentModel<Self, Kind> {
  /// The hint shown inside the field while no date is chosen; absent for none.
  detail::Text placeholder, i18nPlaceholder, helper, i18nHelper, info, i18nInfo, icon;
  // In the pickers' template instances a comment before the declaration reaches only its first
  // name, so the other names are documented one by one.
  /// @var i18nPlaceholder
  /// The localisation key of `placeholder`; absent for none.

  /// @var helper
  /// A helper line shown with the field; absent for none.

  /// @var i18nHelper
  /// The localisation key of `helper`; absent for none.

  /// @var info
  /// A longer information text about the field; absent for none.

  /// @var i18nInfo
  /// The localisation key of `info`; absent for none.

  /// @var icon
  /// The name of the field's icon; absent for none.

  detail::Flag required;  ///< Whether a date must be chosen; absent when the server does not say.
  std::optional<ORVSDateContraintsModel> constraints;  ///< The dates offered; absent for no limits.

  VELORA_FIELD_TABLE(ORVSDatePickerFields, placeholder, i18nPlaceholder, helper, i18nHelper, info, i18nInfo, icon,
      required, constraints);
};

/// A field for picking one date.
struct ORVSDatePickerModel : ORVSDatePickerFields<ORVSDatePickerModel, ORVSComponentType::DATEPICKER> {
  /// The record's name as messages give it; declared here since the field table sits on the base.
  static constexpr std::string_view typeName = "ORVSDatePickerModel";
};

/// A field for picking several dates.
struct ORVSDatePickerMultiModel : ORVSDatePickerFields<ORVSDatePickerMultiModel, ORVSComponentType::DATEPICKER_MULTI> {
  /// The record's name as messages give it; declared here since the field table sits on the base.
  static constexpr std::string_view typeName = "ORVSDatePickerMultiModel";
};

/// A text field; the text typed is the shared `value`.
struct ORVSInputTextModel : ORVSComponentModel<ORVSInputTextModel, ORVSComponentType::INPUT_TEXT> {
  /// @{
  /// The texts shown with the field: the hint inside it while empty (`placeholder`), a helper line
  /// and an information text, each with its localisation key in the `i18n` member named after it
  /// (`i18nPlaceholder` for `placeholder`); and icon names, `iconLeft` shown before the text.
  /// Absent for none.
  detail::Text placeholder, i18nPlaceholder, helper, i18nHelper, info, i18nInfo, icon, iconLeft;
  /// @}
  detail::Flag required;  ///< Whether text must be entered; absent when the server does not say.
  /// What the text must look like; absent for free text.
  std::optional<ORVSInputTextContraintsModel> constraints;

  VELORA_FIELDS(ORVSInputTextModel, placeholder, i18nPlaceholder, helper, i18nHelper, info, i18nInfo, icon, iconLeft,
      required, constraints);
};

/// A number field; the number entered is the shared `value`.
struct ORVSInputNumberModel : ORVSComponentModel<ORVSInputNumberModel, ORVSComponentType::INPUT_NUMBER> {
  /// @{
  /// The texts shown with the field: the hint inside it while empty (`placeholder`), a helper line,
  /// a helper on the right (such as a unit, "kg") and an information text, each with its
  /// localisation key in the `i18n` member named after it (`i18nHelperRight` for `helperRight`);
  /// and icon names, `iconLeft` shown before the number. Absent for none.
  detail::Text placeholder, i18nPlaceholder, helper, i18nHelper, helperRight, i18nHelperRight, info, i18nInfo,
      icon, iconLeft;
  /// @}
  detail::Flag required;  ///< Whether a number must be entered; absent when the server does not say.
  /// The range and step allowed; absent for any number.
  std::optional<ORVSInputNumberContraintsModel> constraints;

  VELORA_FIELDS(ORVSInputNumberModel, placeholder, i18nPlaceholder, helper, i18nHelper, helperRight, i18nHelperRight,
      info, i18nInfo, icon, iconLeft, required, constraints);
};

/// A field for picking a time of day, from free slots the server lists or from a fixed range.
struct ORVSTimePickerModel : ORVSComponentModel<ORVSTimePickerModel, ORVSComponentType::TIMEPICKER> {
  /// @{
  /// The texts shown with the field: the hint inside it while empty (`placeholder`), a helper line
  /// and an information text, each with its localisation key in the `i18n` member named after it
  /// (`i18nPlaceholder` for `placeholder`); and the field's icon name. Absent for none.
  detail::Text placeholder, i18nPlaceholder, helper, i18nHelper, info, i18nInfo, icon;
  /// @}
  detail::Flag required;  ///< Whether a time must be chosen; absent when the server does not say.
  /// Which times are offered; absent for any time.
  std::optional<ORVSTimePickerConstraintsModel> constraints;

  VELORA_FIELDS(ORVSTimePickerModel, placeholder, i18nPlaceholder, helper, i18nHelper, info, i18nInfo, icon, required,
      constraints);
};

/// A slider over a numeric scale, such as a light's dimming level; the position is the shared `value`.
struct ORVSSliderModel : ORVSComponentModel<ORVSSliderModel, ORVSComponentType::SLIDER> {
  /// @{
  /// The labels at the low and high ends, each with its localisation key in the `i18n` member named
  /// after it, and the bar's colour as the server writes it (such as "#FFAA00"); absent for none.
  detail::Text lowText, i18nLowText, highText, i18nHighText, barColor;
  /// @}
  /// @{
  /// `barGradient`: the bar is drawn as a gradient; `barHue`: the bar shows the hue (colour) scale,
  /// as for a colour light; `required`: a value must be set. Absent when the server does not say.
  detail::Flag barGradient, barHue, required;
  /// @}
  /// What moving the slider does, as the JSON received, for the application to carry out; absent
  /// for none.
  detail::Value action;
  std::optional<ORVSSliderContraint> constraints;  ///< The scale; absent when the server sets none.

  VELORA_FIELDS(ORVSSliderModel, lowText, i18nLowText, highText, i18nHighText, barColor, barGradient, barHue, required,
      action, constraints);
};

/// A group of components within a form, titled by the shared `name`.
struct ORVSSectionModel : ORVSComponentModel<ORVSSectionModel, ORVSComponentType::SECTION> {
  /// The section's completion flag as the server sets it (whether it counts as filled in); absent
  /// when not sent.
  detail::Flag completion;
  /// The components in display order, nested sections included; unknown kinds stay in the list as
  /// UNSUPPORTED. Absent when not sent.
  std::optional<ORVSComponentList> components;

  VELORA_FIELDS(ORVSSectionModel, completion, components);
};

/// A form: sections of fields and the buttons that act on it. Its sections and buttons are records
/// of their own, so a view can observe each one.
struct ORVSFormModel : ORVSComponentModel<ORVSFormModel, ORVSComponentType::FORM> {
  /// The sections in display order; absent when not sent.
  std::optional<std::vector<std::shared_ptr<ORVSSectionModel>>> sections;
  /// The form's buttons (send, cancel...) in display order; absent when not sent.
  std::optional<std::vector<std::shared_ptr<ORVSButtonModel>>> buttons;
  /// @{
  /// `submitOnChange`: each change of a field is posted at once, with no button press;
  /// `isRealTime`: the form's values follow live updates from the server. Absent when not sent.
  detail::Flag submitOnChange, isRealTime;
  /// @}

  VELORA_FIELDS(ORVSFormModel, sections, buttons, submitOnChange, isRealTime);
};

/// One step of a stepper (a wizard), titled by the shared `name`.
struct ORVSStepModel : ORVSComponentModel<ORVSStepModel, ORVSComponentType::STEP> {
  /// @{
  /// The text that explains the step and its localisation key; absent for none.
  detail::Text description, i18nDescription;
  /// @}
  /// @{
  /// The step's state and rule: `validated` once its content has been accepted, `filled` once the
  /// user has filled it in, `mandatory` when it cannot be skipped. Absent when not sent.
  detail::Flag validated, filled, mandatory;
  /// @}
  /// @{
  /// The buttons to the next and to the previous step; null for none.
  std::shared_ptr<ORVSButtonModel> nextButton, backButton;
  /// @}

  VELORA_FIELDS(ORVSStepModel, description, i18nDescription, validated, filled, mandatory, nextButton, backButton);
};

/// A wizard: steps the user goes through one after another, with a button to give up.
struct ORVSStepperModel : ORVSComponentModel<ORVSStepperModel, ORVSComponentType::STEPPER> {
  /// @{
  /// The text that explains the whole wizard and its localisation key; absent for none.
  detail::Text description, i18nDescription;
  /// @}
  std::shared_ptr<ORVSButtonModel> discardButton;  ///< The button that abandons the wizard; null for none.
  /// The steps in order; absent when not sent.
  std::optional<std::vector<std::shared_ptr<ORVSStepModel>>> steps;

  VELORA_FIELDS(ORVSStepperModel, description, i18nDescription, discardButton, steps);
};

/// A list the user picks entries from; the picked entries are the shared `value` (often a list of
/// texts).
struct ORVSSelectorModel : ORVSComponentModel<ORVSSelectorModel, ORVSComponentType::SELECTOR> {
  /// @{
  /// A helper line and an information text, each with its localisation key in the `i18n` member
  /// named after it, and the selector's icon name; absent for none.
  detail::Text helper, i18nHelper, info, i18nInfo, icon;
  /// @}
  detail::Flag required;  ///< Whether an entry must be picked; absent when the server does not say.
  /// What picking does, as the JSON received, for the application to carry out; absent for none.
  detail::Value action;
  /// How many entries may be picked; absent for no limit.
  std::optional<ORVSSelectorContraints> constraints;

  VELORA_FIELDS(ORVSSelectorModel, helper, i18nHelper, info, i18nInfo, icon, required, action, constraints);
};

/// A selector whose entries are not in the component: `selectorIdentifier` names the list to offer.
struct ORVSGenericSelectorModel : ORVSComponentModel<ORVSGenericSelectorModel, ORVSComponentType::GENERIC_SELECTOR> {
  /// The name of the list of entries to offer (such as "floors"); absent when not sent.
  detail::Text selectorIdentifier;
  detail::Flag required;  ///< Whether an entry must be picked; absent when the server does not say.
  /// How many entries may be picked; absent for no limit.
  std::optional<ORVSSelectorContraints> constraints;

  VELORA_FIELDS(ORVSGenericSelectorModel, selectorIdentifier, required, constraints);
};

/// A link to another page of server-driven components.
struct ORVSPageReferenceModel : ORVSComponentModel<ORVSPageReferenceModel, ORVSComponentType::PAGE_REFERENCE> {
  detail::Text reference;  ///< The id of the page it leads to, as text; absent when not sent.

  VELORA_FIELDS(ORVSPageReferenceModel, reference);
};

/// A card on a blurred background with a main value and a sub-value, such as a room's temperature.
struct ORVSWidgetBlurModel : ORVSComponentModel<ORVSWidgetBlurModel, ORVSComponentType::WIDGET_BLUR> {
  detail::Number radius;  ///< The corner radius of the card, a number; absent when not sent.
  /// @{
  /// The card's colour as the server writes it (such as "#FFAA00"), the main value as display text
  /// (such as "21.5 °C") and the caption of the sub-value, the texts each with its localisation key
  /// in the `i18n` member named after it; absent for none.
  detail::Text color, mainValue, i18nMainValue, subValueText, i18nSubValueText;
  /// @}
  detail::Value subValue;  ///< The sub-value as the JSON received (a number or a text); absent for none.

  VELORA_FIELDS(ORVSWidgetBlurModel, radius, color, mainValue, i18nMainValue, subValueText, i18nSubValueText, subValue);
};

/// A dial for a value between a low and a high end, such as a light's level or a temperature.
struct ORVSWidgetRadialModel : ORVSComponentModel<ORVSWidgetRadialModel, ORVSComponentType::WIDGET_RADIAL> {
  /// @{
  /// The labels at the low and high ends, the main value as display text and the caption of the
  /// sub-value, each with its localisation key in the `i18n` member named after it, and the
  /// bar's colour as the server writes it (such as "#00FF00"); absent for none.
  detail::Text lowText, i18nLowText, highText, i18nHighText, mainValue, i18nMainValue, subValueText,
      i18nSubValueText, barColor;
  /// @}
  /// Whether the bar shows the hue (colour) scale, as for a colour light; absent when not sent.
  detail::Flag barHue;
  detail::Value subValue;  ///< The sub-value as the JSON received (a number or a text); absent for none.
  /// @{
  /// An error to show with the widget (such as "Sensor offline") and its localisation key; absent
  /// while all is well.
  detail::Text error, i18nError;
  /// @}
  /// A second value shown with the main one (such as a set point), as the JSON received; absent for
  /// none.
  detail::Value secondaryValue;

  VELORA_FIELDS(ORVSWidgetRadialModel, lowText, i18nLowText, highText, i18nHighText, mainValue, i18nMainValue,
      subValueText, i18nSubValueText, barColor, barHue, subValue, error, i18nError, secondaryValue);
};

/// A dial on a blurred card, such as a door's state: the blur widget's card with the radial widget's bar.
struct ORVSWidgetBlurRadialModel : ORVSComponentModel<ORVSWidgetBlurRadialModel, ORVSComponentType::WIDGET_BLUR_RADIAL> {
  detail::Number radius;  ///< The corner radius of the card, a number; absent when not sent.
  /// @{
  /// The main value as display text and the caption of the sub-value, each with its localisation
  /// key in the `i18n` member named after it, and the bar's colour as the server writes it;
  /// absent for none.
  detail::Text mainValue, i18nMainValue, subValueText, i18nSubValueText, barColor;
  /// @}
  detail::Value subValue;  ///< The sub-value as the JSON received (a number or a text); absent for none.
  /// @{
  /// An error to show with the widget and its localisation key; absent while all is well.
  detail::Text error, i18nError;
  /// @}

  VELORA_FIELDS(ORVSWidgetBlurRadialModel, radius, mainValue, i18nMainValue, subValueText, i18nSubValueText, barColor,
      subValue, error, i18nError);
};

/// A vertical bar, such as the height of blinds.
struct ORVSWidgetVerticalModel : ORVSComponentModel<ORVSWidgetVerticalModel, ORVSComponentType::WIDGET_VERTICAL> {
  detail::Number radius;  ///< The corner radius of the card, a number; absent when not sent.
  detail::Text barColor;  ///< The bar's colour as the server writes it (such as "#00FF00"); absent for none.
  /// Whether the bar shows the hue (colour) scale; absent when not sent.
  detail::Flag barHue;
  /// @{
  /// The two values the bar shows, each as the JSON received (a number or a text); absent for none.
  detail::Value value1, value2;
  /// @}

  VELORA_FIELDS(ORVSWidgetVerticalModel, radius, barColor, barHue, value1, value2);
};

/// A card showing two values, such as free and total desks.
struct ORVSWidgetDoubleValueModel
    : ORVSComponentModel<ORVSWidgetDoubleValueModel, ORVSComponentType::WIDGET_DOUBLE_VALUE> {
  detail::Number radius;  ///< The corner radius of the card, a number; absent when not sent.
  /// @{
  /// The two values, each as the JSON received (a number or a text, such as "3" and "12"); absent
  /// for none.
  detail::Value value1, value2;
  /// @}

  VELORA_FIELDS(ORVSWidgetDoubleValueModel, radius, value1, value2);
};

/// A widget section the user may edit: add components, reorder them, manage them, then save.
struct ORVSWidgetSectionEditableModel
    : ORVSComponentModel<ORVSWidgetSectionEditableModel, ORVSComponentType::WIDGET_SECTION_EDITABLE> {
  /// The components in display order; unknown kinds stay in the list as UNSUPPORTED. Absent when
  /// not sent.
  std::optional<ORVSComponentList> components;
  /// Whether the components run in a row or a column; absent when not sent.
  std::optional<ORVSWidgetScrollDirection> scroll;
  detail::Flag counter;  ///< Whether to show how many components it holds; absent when not sent.
  /// @{
  /// The buttons that add, reorder and manage its components and save the changes; null for none.
  std::shared_ptr<ORVSButtonModel> addButton, orderButton, manageButton, saveButton;
  /// @}

  VELORA_FIELDS(ORVSWidgetSectionEditableModel, components, scroll, counter, addButton, orderButton, manageButton,
      saveButton);
};

/// A group of widgets titled by the shared `name`, such as the widgets of a room.
struct ORVSWidgetSectionModel : ORVSComponentModel<ORVSWidgetSectionModel, ORVSComponentType::WIDGET_SECTION> {
  /// The components in display order, nested sections included; unknown kinds stay in the list as
  /// UNSUPPORTED. Absent when not sent.
  std::optional<ORVSComponentList> components;
  /// Whether the components run in a row or a column; absent when not sent.
  std::optional<ORVSWidgetScrollDirection> scroll;
  detail::Flag counter;  ///< Whether to show how many components it holds; absent when not sent.
  /// @{
  /// The text, and the line under it, shown while the section holds no components, each with its
  /// localisation key in the `i18n` member named after it; absent for none.
  detail::Text noElementsText, i18nNoElementsText, noElementsSubText, i18nNoElementsSubText;
  /// @}

  VELORA_FIELDS(ORVSWidgetSectionModel, components, scroll, counter, noElementsText, i18nNoElementsText,
      noElementsSubText, i18nNoElementsSubText);
};

/// A tile standing for a group of equipment, shown by the equipment's icons.
struct ORVSWidgetGroupModel : ORVSComponentModel<ORVSWidgetGroupModel, ORVSComponentType::WIDGET_GROUP> {
  detail::Number radius;  ///< The corner radius of the tile, a number; absent when not sent.
  /// The icon names in display order (such as "bulb", "fan"); absent when not sent.
  std::optional<std::vector<std::string>> icons;

  VELORA_FIELDS(ORVSWidgetGroupModel, radius, icons);
};

}  // namespace velora
