// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What is published of a camera, and where, as far as DDS is not needed for it.
#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <map>

#include "host/failure.h"
#include "ros/camera_messages.h"
#include "ros/environment.h"
#include "ros/health.h"

namespace
{

using Variables = std::map<std::string, std::string>;

Domain domainOf(const Variables& variables)
{
    return domainFrom([&](const char* name) {
        const auto found = variables.find(name);
        return found != variables.end() ? found->second.c_str() : nullptr;
    });
}

TEST(Domain, FollowsTheVariablesOfRos)
{
    const struct {
        Variables variables;
        uint32_t id;
        std::vector<std::string> has, lacks;
        size_t warnings = 0;
    } cases[] = {
        {{}, 0, {"auto</ParticipantIndex>"}, {"AllowMulticast", "Peer", "Interface"}},
        {{{"ROS_DOMAIN_ID", "232"}, {"ROS_STATIC_PEERS", "10.0.0.2;;robot.local"}},
         232,
         {R"(<Peers><Peer address="10.0.0.2"/><Peer address="robot.local"/></Peers>)"},
         {"AllowMulticast"}},
        {{{"ROS_AUTOMATIC_DISCOVERY_RANGE", "LOCALHOST"}, {"ROS_STATIC_PEERS", "10.0.0.2"}},
         0,
         {"<AllowMulticast>false", R"("localhost"/><Peer address="10.0.0.2"/>)"},
         {"Interface"}},
        {{{"ROS_AUTOMATIC_DISCOVERY_RANGE", "OFF"}, {"ROS_STATIC_PEERS", "10.0.0.2"}},
         0,
         {"<AllowMulticast>false", "<Tag>"},
         {"Peer"},
         1},
        {{{"ROS_AUTOMATIC_DISCOVERY_RANGE", "everywhere"}}, 0, {R"("localhost")"}, {}, 1},
        {{{"ROS_AUTOMATIC_DISCOVERY_RANGE", "SYSTEM_DEFAULT"}, {"CYCLONEDDS_URI", "file:///etc/dds.xml"}},
         0,
         {"file:///etc/dds.xml"},
         {"<", ","}},
        // It prevails, and the user's own file comes last, so that it prevails over all.
        {{{"ROS_LOCALHOST_ONLY", "1"}, {"ROS_STATIC_PEERS", "10.0.0.2"}, {"CYCLONEDDS_URI", "<CycloneDDS/>"}},
         0,
         {R"(NetworkInterface address="127.0.0.1")", "<AllowMulticast>false", ",<CycloneDDS/>"},
         {"10.0.0.2"}},
    };
    for (const auto& c : cases) {
        const Domain domain = domainOf(c.variables);
        EXPECT_EQ(domain.id, c.id);
        EXPECT_EQ(domain.warnings.size(), c.warnings) << domain.configuration;
        for (const std::string& part : c.has)
            EXPECT_NE(domain.configuration.find(part), std::string::npos) << part << " in " << domain.configuration;
        for (const std::string& part : c.lacks)
            EXPECT_EQ(domain.configuration.find(part), std::string::npos) << part << " in " << domain.configuration;
    }
    for (const Variables& bad : {Variables{{"ROS_DOMAIN_ID", "233"}},
                                 {{"ROS_DOMAIN_ID", "-1"}},
                                 {{"ROS_DOMAIN_ID", "7x"}},
                                 {{"ROS_STATIC_PEERS", "a\"/><Peer"}}})
        EXPECT_THROW(domainOf(bad), Failure) << bad.begin()->second;
}

Json parametersOf(const char* product, int undistortion, int orthogonal)
{
    return {{"camera", {{"serial", "24061100000001"}, {"product", product}, {"profile", nullptr}}},
            {"settings", {{"undistortion", undistortion}, {"orthogonal", orthogonal}}},
            {"lens",
             {{"depth",
               {{"fx", 204.5},
                {"fy", 203.5},
                {"cx", 160.3},
                {"cy", 119.2},
                {"k1", -0.346},
                {"k2", 0.143},
                {"k3", -0.02},
                {"p1", 0.002},
                {"p2", -0.003},
                {"skew", 0.01}}}}}};
}

TEST(CameraView, KindFollowsModelAndSettings)
{
    const struct {
        const char* product;
        int undistortion, orthogonal;
        const char *depth, *image;
    } cases[] = {{"VQD-HT120", 0, 0, "range", "image_raw"},
                 {"VQD-HT120", 3, 1, "depth", "image_rect"},
                 {"VQD-HT110", 1, 0, "depth", "image_rect"}};
    for (const auto& c : cases) {
        const CameraView view = cameraViewFrom(parametersOf(c.product, c.undistortion, c.orthogonal));
        EXPECT_STREQ(depthWord(view.kind), c.depth) << c.product;
        EXPECT_STREQ(imageWord(view.kind), c.image) << c.product;
    }
    Json incomplete = parametersOf("VQD-HT120", 0, 0);
    incomplete["lens"]["depth"]["cx"] = "160";
    EXPECT_THROW(cameraViewFrom(incomplete), Failure);
    EXPECT_THROW(cameraViewFrom(Json()), Failure);
}

TEST(CameraInfo, HasDistortionOnlyBeforeItWasRemoved)
{
    const auto raw = cameraInfoOf(cameraViewFrom(parametersOf("VQD-HT110", 0, 0)));
    EXPECT_EQ(raw.d, (std::vector<double>{-0.346, 0.143, 0.002, -0.003, -0.02})); // k1 k2 p1 p2 k3
    EXPECT_EQ(raw.k, (std::array<double, 9>{204.5, 2.045, 160.3, 0, 203.5, 119.2, 0, 0, 1}));
    const auto rectified = cameraInfoOf(cameraViewFrom(parametersOf("VQD-HT110", 1, 0)));
    EXPECT_EQ(rectified.d, std::vector<double>(5));
    EXPECT_EQ(rectified.k, (std::array<double, 9>{204.5, 0, 160.3, 0, 203.5, 119.2, 0, 0, 1}));
    EXPECT_EQ(rectified.p, (std::array<double, 12>{204.5, 0, 160.3, 0, 0, 203.5, 119.2, 0, 0, 0, 1, 0}));
}

// A ray that goes through the lens again ends at its pixel.
TEST(Rays, AreTheOnesThatTheLensBendsToTheirPixels)
{
    const CameraView view = cameraViewFrom(parametersOf("VQD-HT120", 0, 0)); // range: rays of length 1
    const std::vector<Ray> rays = raysOf(view);
    for (const int pixel : {0, 319, 160 + 320 * 119, 320 * 239, 320 * 240 - 1}) {
        const Ray& ray = rays[static_cast<size_t>(pixel)];
        EXPECT_NEAR(std::hypot(ray.x, ray.y, ray.z), 1, 1e-6);
        const double x = ray.x / ray.z, y = ray.y / ray.z, r2 = x * x + y * y;
        const double radial = 1 - 0.346 * r2 + 0.143 * r2 * r2 - 0.02 * r2 * r2 * r2;
        const double xd = x * radial + 2 * 0.002 * x * y - 0.003 * (r2 + 2 * x * x);
        const double yd = y * radial + 0.002 * (r2 + 2 * y * y) - 2 * 0.003 * x * y;
        EXPECT_NEAR((xd + 0.01 * yd) * 204.5 + 160.3, pixel % 320, 0.01) << pixel;
        EXPECT_NEAR(yd * 203.5 + 119.2, pixel / 320, 0.01) << pixel;
    }
}

// Half turns are where the usual formula divides by 0.
TEST(Transforms, RotationsBecomeQuaternions)
{
    const double s = std::sqrt(0.5);
    const struct {
        std::array<double, 9> rotation;
        double x, y, z, w;
    } cases[] = {{{1, 0, 0, 0, 1, 0, 0, 0, 1}, 0, 0, 0, 1},   {{1, 0, 0, 0, -1, 0, 0, 0, -1}, 1, 0, 0, 0},
                 {{-1, 0, 0, 0, 1, 0, 0, 0, -1}, 0, 1, 0, 0}, {{-1, 0, 0, 0, -1, 0, 0, 0, 1}, 0, 0, 1, 0},
                 {{1, 0, 0, 0, 0, -1, 0, 1, 0}, s, 0, 0, s},  {{0, -1, 0, 1, 0, 0, 0, 0, 1}, 0, 0, s, s},
                 {{0, 0, 1, 0, 1, 0, -1, 0, 0}, 0, s, 0, s}};
    for (const auto& c : cases) {
        const auto transform = transformOf({"24061100000002", c.rotation, {1000, -20, 3}}, "child");
        EXPECT_EQ(transform.header.frame_id, "vqd_24061100000002_optical_frame");
        EXPECT_DOUBLE_EQ(transform.transform.translation.x, 1);
        const auto& q = transform.transform.rotation;
        EXPECT_NEAR(q.x, c.x, 1e-12);
        EXPECT_NEAR(q.y, c.y, 1e-12);
        EXPECT_NEAR(q.z, c.z, 1e-12);
        EXPECT_NEAR(q.w, c.w, 1e-12);
    }
    EXPECT_EQ(transformOf({"table", cases[0].rotation, {}}, "child").header.frame_id, "table");
}

TEST(Health, LevelsAreOfTheTimeSinceTheLastReport)
{
    using Status = msg::diagnostic_msgs::DiagnosticStatus;
    Health health;
    health.add({36.5, 0, false});
    EXPECT_EQ(health.report(1, "").level, Status::OK);
    health.add({36.5, 2, true});
    const Status lost = health.report(2, "");
    EXPECT_EQ(lost.level, Status::WARN);
    EXPECT_EQ(lost.message, "2 frames were lost");
    EXPECT_EQ(lost.values[0].value, "0.5");
    health.add({36.5, 0, false});
    EXPECT_EQ(health.report(1, "").level, Status::OK);
    const Status none = health.report(1, "no frames: held");
    EXPECT_EQ(none.level, Status::ERROR);
    EXPECT_EQ(none.message, "no frames: held");
    EXPECT_EQ(none.values[2].value, "2");
}

} // namespace
