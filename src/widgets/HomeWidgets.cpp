// The home screen's widget union: choosing the record by "type", and writing it back.

#include <velora/widgets/HomeWidgets.hpp>

#include <array>

namespace velora {
namespace {

template <class M>
Widget decodeAs(const AnyCodable& json, const detail::JsonPath& path) {
  return Widget(detail::Codec<M>::decode(json, path));
}

struct Decoder {
  WidgetType kind;
  Widget (*decode)(const AnyCodable&, const detail::JsonPath&);
};

template <class... M>
constexpr std::array<Decoder, sizeof...(M)> decoders() {
  return {Decoder{M::kind, &decodeAs<M>}...};
}

// The kinds in the order "type" is matched against their raw texts, exactly and case-sensitively.
constexpr auto kDecoders = decoders<WidgetUser, WidgetBooking, WidgetLocker, WidgetWeb, WidgetAction, WidgetDND>();

static_assert(kDecoders.size() + 1 == std::variant_size_v<Widget::Case>, "every supported case is decodable");

}  // namespace

WidgetType Widget::type() const {
  return std::visit(
      [](const auto& c) {
        using C = std::remove_cvref_t<decltype(c)>;
        if constexpr (std::is_same_v<C, Unsupported>) {
          return WidgetType::UNSUPPORTED;
        } else {
          return C::kind;
        }
      },
      case_);
}

std::optional<AnyCodable> Widget::wrappedObject() const {
  if (isUnsupported()) return std::nullopt;
  return encode(*this);
}

std::vector<AnyCodable> wrappedObjects(const std::vector<Widget>& widgets) {
  std::vector<AnyCodable> objects;
  for (const auto& widget : widgets) {
    if (auto object = widget.wrappedObject()) objects.push_back(std::move(*object));
  }
  return objects;
}

namespace detail {

AnyCodable Codec<Widget>::encode(const Widget& widget) {
  return std::visit(
      [](const auto& c) -> AnyCodable {
        using C = std::remove_cvref_t<decltype(c)>;
        if constexpr (std::is_same_v<C, Widget::Unsupported>) {
          return AnyCodable::object({{"type", c.type}});
        } else {
          return Codec<C>::encode(c);
        }
      },
      widget.value());
}

Widget Codec<Widget>::decode(const AnyCodable& json, const JsonPath& path) {
  if (!json.isObject()) throwDecoding(path, std::string("expected an object, found ") + std::string(kindName(json)));
  const JsonPath typePath{&path, "type"};
  const AnyCodable* typeValue = json.find("type");
  if (!typeValue) throwDecoding(typePath, "required key is missing");
  std::string type = Codec<std::string>::decode(*typeValue, typePath);
  for (const auto& decoder : kDecoders) {
    if (rawValue(decoder.kind) == type) return decoder.decode(json, path);
  }
  return Widget(Widget::Unsupported{std::move(type)});
}

}  // namespace detail

}  // namespace velora
