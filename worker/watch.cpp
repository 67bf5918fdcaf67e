// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
#include "worker/watch.h"

#include "host/failure.h"

namespace
{

int number(const Json& json, const char* name, int least, int most)
{
    const Json value = json.value(name, Json());
    if (!value.is_number_integer() || value < least || value > most)
        throw Failure(kUsage, std::string("\"") + name + "\" of a region is not a whole number from " +
                                  std::to_string(least) + " to " + std::to_string(most));
    return value.get<int>();
}

Json orNull(const std::optional<double>& value)
{
    return value ? Json(*value) : Json();
}

} // namespace

Watch::Region Watch::regionFrom(const Json& json)
{
    if (!json.is_object())
        throw Failure(kUsage, "\"regions\" holds something else than objects");
    for (const auto& [name, unused] : json.items())
        if (name != "name" && name != "x" && name != "y" && name != "width" && name != "height")
            throw Failure(kUsage, "a region has no \"" + name + "\"");
    const Json name = json.value("name", Json());
    if (!name.is_string() || name.get_ref<const std::string&>().size() > kMostRegionName)
        throw Failure(kUsage,
                      "\"name\" of a region is not a text of at most " + std::to_string(kMostRegionName) + " bytes");
    Rectangle r{};
    r.x = number(json, "x", 0, VQD_WIDTH - 1);
    r.y = number(json, "y", 0, VQD_HEIGHT - 1);
    r.width = number(json, "width", 1, VQD_WIDTH - r.x);
    r.height = number(json, "height", 1, VQD_HEIGHT - r.y);
    return {name.get<std::string>(), r};
}

void Watch::set(const Json& request)
{
    const Json list = request.value("regions", Json());
    if (!list.is_array() || list.size() > kMostRegions)
        throw Failure(kUsage, "\"regions\" is not an array of at most " + std::to_string(kMostRegions) + " regions");
    std::vector<Region> regions;
    for (const Json& json : list)
        regions.push_back(regionFrom(json));
    if (m_regions.empty()) // frames that nobody watched are missing in it
        m_noise.forget();
    m_regions = std::move(regions);
    m_state.change([this](auto& values) { values.regions = this->regions(); });
}

Json Watch::jsonOf(const Region& region)
{
    const Rectangle& r = region.rectangle;
    return {{"name", region.name}, {"x", r.x},           {"y", r.y},
            {"width", r.width},    {"height", r.height}, {"figures", nullptr}};
}

Json Watch::regions() const
{
    Json json = Json::array();
    for (const Region& region : m_regions)
        json.push_back(jsonOf(region));
    return json;
}

Json Watch::figures(const Region& region, const FrameView& view) const
{
    const RegionFigures figures =
        figuresOf(region.rectangle, view.frame.amplitude.data(), view.frame.depth.data(), pPointCloud);
    Json json{{"sequence", view.header.sequence},
              {"pixels", figures.pixels},
              {"valid", figures.valid},
              {"fill-rate", static_cast<double>(figures.valid) / figures.pixels},
              {"mean", orNull(figures.mean)},
              {"minimum", figures.valid > 0 ? Json(figures.minimum) : Json()},
              {"maximum", figures.valid > 0 ? Json(figures.maximum) : Json()},
              {"amplitude", orNull(figures.amplitude)},
              {"sigma-space", orNull(figures.sigmaSpace)},
              {"sigma-time", orNull(m_noise.sigma(region.rectangle))},
              {"frames", m_noise.frames()},
              {"plane", nullptr},
              {"histogram", nullptr}};
    if (figures.plane)
        json["plane"] = {{"rms", figures.plane->rms}, {"tilt", figures.plane->tilt}};
    if (figures.histogram)
        json["histogram"] = {{"from", figures.histogram->from},
                             {"step", figures.histogram->step},
                             {"counts", figures.histogram->counts}};
    return json;
}

void Watch::frame(const FrameView& view)
{
    if (m_regions.empty())
        return;
    m_noise.add(view.frame.depth.data());
    Json all = Json::array();
    for (const Region& region : m_regions) {
        all.push_back(jsonOf(region));
        all.back()["figures"] = figures(region, view);
    }
    m_state.change([&](auto& values) { values.regions = std::move(all); });
}

// What the camera measures, or how, is another thing from here on.
void Watch::parameters(const Parameters&)
{
    m_noise.forget();
}

void Watch::event(const Json& event)
{
    if (event["event"] == "reopened")
        m_noise.forget();
}
