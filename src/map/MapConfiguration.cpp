#include <velora/map/MapConfiguration.hpp>

#include <utility>

namespace velora {

ToolboxParametersModel ToolboxModel::defaultMapControl() {
  return {.enabled = true, .x = 50, .y = 50, .buttonWidth = 40, .buttonHeight = 40, .buttonSpace = 10,
          .orientation = OrientationType::horizontal, .rotationStep = 10};
}

ToolboxParametersModel ToolboxModel::defaultLayer() {
  return {.enabled = true, .x = 50, .y = 120, .buttonWidth = 30, .buttonHeight = 30, .buttonSpace = 8,
          .orientation = OrientationType::vertical, .rotationStep = std::nullopt};
}

ToolboxModel::ToolboxModel(std::optional<ToolboxParametersModel> mapControl, std::optional<ToolboxParametersModel> layer)
    : mapControl(mapControl ? std::move(*mapControl) : defaultMapControl()),
      layer(layer ? std::move(*layer) : defaultLayer()) {}

ShowModel ConfigurationModel::defaultShow() {
  return {.me = true, .all = false, .room = true, .list = std::nullopt, .kiosk = 0, .path = 1};
}

VisualizationModel ConfigurationModel::defaultVisualization() {
  return {.followTagOnClick = false, .centerAreaOnClick = true};
}

ConfigurationModel::ConfigurationModel(std::optional<std::string> tagid, std::optional<StyleConfigurationModel> style,
                                       std::optional<ToolboxModel> toolbox, std::optional<ShowModel> show,
                                       std::optional<std::vector<std::string>> areaGroups,
                                       std::optional<std::vector<std::int64_t>> buildings,
                                       std::optional<std::string> callbackType,
                                       std::optional<VisualizationModel> visualization,
                                       std::optional<std::int64_t> initialMapId, bool noImage)
    : style(std::move(style).value_or(StyleConfigurationModel{})),
      tagid(std::move(tagid)),
      toolbox(std::move(toolbox).value_or(ToolboxModel{})),
      show(std::move(show).value_or(defaultShow())),
      areaGroups(std::move(areaGroups)),
      buildings(std::move(buildings)),
      callbackType(std::move(callbackType).value_or("iOS")),
      visualization(visualization.value_or(defaultVisualization())),
      initialMapId(initialMapId),
      noImage(noImage) {}

}  // namespace velora
