// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
#include "sim_scene.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <numbers>
#include <span>

#include <CLI/CLI.hpp>

#include "host/documents.h"

#include "command_line.h"
#include "for_camera.h"

namespace
{

// A number that can be given by name, and what it may be.
template <typename T> struct Named {
    const char* name;
    double T::*value;
    double least, most;
};

constexpr double kAny = 1e6;
constexpr Named<sim::Optics> kLens[] = {
    {"fx", &sim::Optics::fx, 1, kAny},     {"fy", &sim::Optics::fy, 1, kAny},     {"cx", &sim::Optics::cx, -kAny, kAny},
    {"cy", &sim::Optics::cy, -kAny, kAny}, {"k1", &sim::Optics::k1, -kAny, kAny}, {"k2", &sim::Optics::k2, -kAny, kAny},
    {"k3", &sim::Optics::k3, -kAny, kAny}, {"p1", &sim::Optics::p1, -kAny, kAny}, {"p2", &sim::Optics::p2, -kAny, kAny},
};
constexpr Named<sim::SensorModel> kSensor[] = {
    {"noise", &sim::SensorModel::noise, 0, 1000},   {"read-out", &sim::SensorModel::readOut, 0, kAny},
    {"shot", &sim::SensorModel::shot, 0, kAny},     {"jitter", &sim::SensorModel::jitter, 0, 10000},
    {"phase", &sim::SensorModel::phase, 0, kAny},   {"fixed-pattern", &sim::SensorModel::fixedPattern, 0, 10000},
    {"bias", &sim::SensorModel::bias, -kAny, kAny}, {"drift", &sim::SensorModel::drift, -10000, 10000},
    {"fill", &sim::SensorModel::fill, 0, 1},
};

std::vector<std::string> split(const std::string& text)
{
    std::vector<std::string> parts;
    for (size_t begin = 0; begin <= text.size();) {
        const size_t end = std::min(text.find(',', begin), text.size());
        parts.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    return parts;
}

double number(const std::string& text, double least, double most, const std::string& what)
{
    double value = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc{} || stop != end || text.empty() || !(value >= least && value <= most)) {
        char range[64];
        snprintf(range, sizeof range, "%g to %g", least, most);
        throw Failure(kUsage, what + " is a number from " + range + ", not '" + text + "'");
    }
    return value;
}

template <typename T, size_t N> void assign(T& values, const Named<T> (&known)[N], const std::string& text)
{
    for (const std::string& part : split(text)) {
        const size_t equals = part.find('=');
        const auto* row =
            std::ranges::find_if(known, [&](const Named<T>& one) { return part.substr(0, equals) == one.name; });
        if (equals == std::string::npos || row == std::end(known)) {
            std::string names;
            for (const Named<T>& one : known)
                names += (names.empty() ? "" : ", ") + std::string(one.name);
            throw Failure(kUsage, "'" + part + "' is not of the form NAME=VALUE, with a name of " + names);
        }
        values.*row->value = number(part.substr(equals + 1), row->least, row->most, row->name);
    }
}

constexpr double kFarthest = 100000; // mm

sim::Pose parsePose(const std::string& text)
{
    const std::vector<std::string> parts = split(text);
    if (parts.size() != 3 && parts.size() != 6)
        throw Failure(kUsage, "a pose is X,Y,Z in mm, or X,Y,Z,A,B,C with angles in degrees, not '" + text + "'");
    sim::Pose pose;
    for (size_t i = 0; i < parts.size(); ++i)
        (i < 3 ? pose.position[i] : pose.angles[i - 3]) =
            i < 3 ? number(parts[i], -kFarthest, kFarthest, "a position") : number(parts[i], -360, 360, "an angle");
    return pose;
}

uint64_t wholeMember(const Json& json, const char* name, uint64_t otherwise, uint64_t least, uint64_t most,
                     const std::string& file)
{
    const Json value = json.value(name, Json(otherwise));
    if (!value.is_number_unsigned() || value.get<uint64_t>() < least || value.get<uint64_t>() > most)
        throw Failure(kUsage, file + ": \"" + name + "\" is no whole number, or out of its range");
    return value;
}

double member(const Json& json, const char* name, double otherwise, double least, double most, const std::string& file)
{
    const Json value = json.value(name, Json(otherwise));
    if (!value.is_number() || !(value.get<double>() >= least && value.get<double>() <= most))
        throw Failure(kUsage, file + ": \"" + name + "\" is no number, or out of its range");
    return value.get<double>();
}

std::array<double, 3> three(const Json& pose, const char* name, double most, const std::string& file)
{
    const Json list = pose.is_object() ? pose.value(name, Json::array({0, 0, 0})) : Json();
    const auto isGood = [&](const Json& one) { return one.is_number() && std::fabs(one.get<double>()) <= most; };
    if (!list.is_array() || list.size() != 3 || !std::ranges::all_of(list, isGood))
        throw Failure(kUsage, file + ": the \"" + name + "\" of a pose is no list of three numbers in their range");
    return {list[0], list[1], list[2]};
}

sim::BoardSeries readBoard(const std::string& file)
{
    const Json json = readDocument(file, "board");
    sim::BoardSeries series;
    series.columns =
        static_cast<int>(wholeMember(json, "columns", static_cast<uint64_t>(series.columns), 2, 100, file));
    series.rows = static_cast<int>(wholeMember(json, "rows", static_cast<uint64_t>(series.rows), 2, 100, file));
    series.square = member(json, "square", series.square, 1, kFarthest, file);
    series.wall = member(json, "wall", series.wall, 1, kFarthest, file);
    series.framesPerPose = wholeMember(json, "frames-per-pose", series.framesPerPose, 1, 1'000'000'000, file);
    const Json poses = json.value("poses", Json());
    if (!poses.is_array() || poses.empty() || poses.size() > 10000)
        throw Failure(kUsage, file + ": \"poses\" is no list of one to 10000 poses");
    for (const Json& pose : poses)
        series.poses.push_back({three(pose, "position", kFarthest, file), three(pose, "angles", 360, file)});
    return series;
}

void parseWall(sim::SceneOptions& scene, const std::string& argument)
{
    const std::vector<std::string> parts = split(argument);
    if (parts.size() > 2)
        throw Failure(kUsage, "a wall is wall:DISTANCE or wall:DISTANCE,TILT, not 'wall:" + argument + "'");
    scene.wallDistance = number(parts[0], 1, 65000, "the distance of a wall in mm");
    const double tilt = parts.size() == 2 ? number(parts[1], -80, 80, "the tilt of a wall in degrees") : 0;
    scene.wallSlope = std::tan(tilt * std::numbers::pi / 180);
}

} // namespace

std::vector<CLI::Option*> addSceneOptions(CLI::App& command, SimScene& options)
{
    return {
        command
            .add_option("--scene", options.scene,
                        "What the cameras see: room, wall[:DISTANCE[,TILT]], ramp, plane, board:FILE")
            ->type_name("SCENE")
            ->capture_default_str(),
        addRepeatable(command, "--lens", options.lenses, "[CAMERA:]NAME=VALUE,...",
                      "The true lens before the sensor: fx, fy, cx, cy in pixels, k1, k2, k3, p1, p2")
            ->check(notEmpty),
        addRepeatable(command, "--pose", options.poses, "[CAMERA:]X,Y,Z[,A,B,C]",
                      "Where the camera stands in the scene, in mm, and how it is turned about x, y and z, in degrees")
            ->check(notEmpty),
        addRepeatable(command, "--sensor", options.sensors, "[CAMERA:]NAME=VALUE,...",
                      "Noise and errors: noise, read-out, shot, jitter, phase, fixed-pattern, bias, drift, fill")
            ->check(notEmpty),
    };
}

sim::SceneOptions sceneOf(const SimScene& options, size_t index, size_t cameras)
{
    const size_t colon = options.scene.find(':');
    const std::string name = options.scene.substr(0, colon);
    const auto kind = sim::sceneByName(name);
    const bool takesArgument = kind == sim::SceneKind::wall || kind == sim::SceneKind::board;
    if (!kind || (colon != std::string::npos && !takesArgument) ||
        (kind == sim::SceneKind::board && options.scene.size() < name.size() + 2))
        throw Failure(kUsage,
                      "--scene: '" + options.scene +
                          "' is none of room, wall, wall:DISTANCE, wall:DISTANCE,TILT, ramp, plane, board:FILE");
    sim::SceneOptions scene{.kind = *kind};
    if (colon != std::string::npos && kind == sim::SceneKind::wall)
        parseWall(scene, options.scene.substr(colon + 1));
    if (kind == sim::SceneKind::board)
        scene.board = readBoard(options.scene.substr(colon + 1));
    const auto forThis = [&](const std::vector<std::string>& texts, const auto& use) {
        for (const std::string& text : texts)
            if (const ForCamera one = addressed(text, cameras); one.concerns(index))
                use(one.value);
    };
    forThis(options.lenses, [&](const std::string& text) { assign(scene.lens, kLens, text); });
    forThis(options.sensors, [&](const std::string& text) { assign(scene.sensor, kSensor, text); });
    forThis(options.poses, [&](const std::string& text) { scene.pose = parsePose(text); });
    return scene;
}
