#include <velora/widgets/ORVSComponent.hpp>

#include <array>
#include <stdexcept>
#include <tuple>
#include <type_traits>

namespace velora {

namespace {

template <class M>
ORVSComponent decodeAs(const AnyCodable& json, const detail::JsonPath& path) {
  return ORVSComponent(std::make_shared<M>(detail::Codec<M>::decode(json, path)));
}

struct Decoder {
  ORVSComponentType kind;
  ORVSComponent (*decode)(const AnyCodable&, const detail::JsonPath&);
};

template <class... M>
constexpr std::array<Decoder, sizeof...(M)> decoders() {
  return {Decoder{M::kind, &decodeAs<M>}...};
}

// The kinds in the order "type" is matched against them, exactly and case-sensitively.
const auto kDecoders =
    decoders<ORVSButtonModel, ORVSDatePickerModel, ORVSDatePickerMultiModel, ORVSInputTextModel, ORVSTimePickerModel,
             ORVSSectionModel, ORVSFormModel, ORVSSelectorModel, ORVSInputNumberModel, ORVSSliderModel,
             ORVSStepperModel, ORVSStepModel, ORVSGenericSelectorModel, ORVSPageReferenceModel, ORVSWidgetBlurModel,
             ORVSWidgetRadialModel, ORVSWidgetBlurRadialModel, ORVSWidgetVerticalModel, ORVSWidgetDoubleValueModel,
             ORVSWidgetSectionEditableModel, ORVSWidgetSectionModel, ORVSWidgetGroupModel>();

static_assert(std::tuple_size_v<decltype(kDecoders)> + 1 == std::variant_size_v<ORVSComponent::Case>,
              "every supported case is decodable");

}  // namespace

ORVSComponentType ORVSComponent::type() const {
  return std::visit(
      [](const auto& c) {
        using C = std::remove_cvref_t<decltype(c)>;
        if constexpr (std::is_same_v<C, Unsupported>) {
          return ORVSComponentType::unknown;
        } else {
          return C::element_type::kind;
        }
      },
      case_);
}

std::shared_ptr<ORVSBaseModel> ORVSComponent::base() const {
  return std::visit(
      [](const auto& c) -> std::shared_ptr<ORVSBaseModel> {
        if constexpr (std::is_same_v<std::remove_cvref_t<decltype(c)>, Unsupported>) {
          return nullptr;
        } else {
          return c;
        }
      },
      case_);
}

bool operator==(const ORVSComponent& a, const ORVSComponent& b) {
  if (a.case_.index() != b.case_.index()) return false;
  return std::visit(
      [&](const auto& left) {
        using C = std::remove_cvref_t<decltype(left)>;
        return detail::sameValue(left, std::get<C>(b.case_));
      },
      a.case_);
}

void ORVSComponent::throwEmpty() { throw std::invalid_argument("ORVSComponent needs a component record, not an empty pointer"); }

namespace detail {

AnyCodable Codec<ORVSComponent>::encode(const ORVSComponent& component) {
  return std::visit(
      [](const auto& c) -> AnyCodable {
        using C = std::remove_cvref_t<decltype(c)>;
        if constexpr (std::is_same_v<C, ORVSComponent::Unsupported>) {
          return c.json;
        } else {
          using M = typename C::element_type;
          AnyCodable out = Codec<M>::encode(*c);
          // The case decides the kind on the wire, whatever the record's own field says.
          out["type"] = std::string(rawValue(M::kind));
          return out;
        }
      },
      component.value());
}

ORVSComponent Codec<ORVSComponent>::decode(const AnyCodable& json, const JsonPath& path) {
  if (!json.isObject()) throwDecoding(path, std::string("expected an object, found ") + std::string(kindName(json)));
  const JsonPath typePath{&path, "type"};
  const AnyCodable* typeValue = json.find("type");
  if (!typeValue) throwDecoding(typePath, "required key is missing");
  const std::string type = Codec<std::string>::decode(*typeValue, typePath);
  for (const auto& decoder : kDecoders) {
    if (rawValue(decoder.kind) == type) return decoder.decode(json, path);
  }
  return ORVSComponent(ORVSComponent::Unsupported{json});
}

}  // namespace detail

}  // namespace velora
