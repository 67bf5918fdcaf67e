// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// One function for each check, and the table of them.
#include "selftest_checks.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>

#include "config/param_image.h"
#include "device/base/models.h"
#include "host/assignments.h"
#include "host/camera_stream.h"
#include "host/claim.h"
#include "host/formatted.h"
#include "host/plausibility.h"

#include "interrupt.h"

namespace
{

Verdict passes(const std::string& text)
{
    return {Result::pass, text};
}

Verdict fails(const std::string& text)
{
    return {Result::fail, text};
}

Verdict skips(const std::string& text)
{
    return {Result::skip, text};
}

Verdict judge(bool good, const std::string& text)
{
    return good ? passes(text) : fails(text);
}

Verdict eeprom(Bench& bench)
{
    const uint8_t signature = bench.camera.eeprom[kSignature];
    switch (bench.camera.known) {
    case Known::read:
        return passes(formatted("signature %02x", signature));
    case Known::notSigned:
        return fails(formatted("no signature (%02x); the library uses factory settings", signature));
    case Known::notRead:
        break;
    }
    return fails("it cannot be read; the library uses factory settings");
}

Verdict lens(Bench& bench)
{
    float intrinsic[4] = {}, distortion[6] = {};
    vqdGetLensParameter(bench.n, intrinsic, distortion);
    const LensIntrinsic k{intrinsic[0], intrinsic[1], intrinsic[2], intrinsic[3]};
    return judge(isPlausible(k), lensText(k));
}

Verdict opens(Bench& bench)
{
    bench.claimed = tryClaim(bench.camera);
    return judge(bench.claimed, bench.claimed ? "claimed" : "another program may hold it; see vqd doctor");
}

// Two values for each setting, so that one of them differs from the present one.
constexpr struct {
    const char* name;
    int first[3], second[3];
} kTrials[] = {
    {"frequency", {30}, {20}},
    {"offset", {-7}, {9}},
    {"scatter-threshold", {40}, {50}},
    {"check-threshold", {20}, {30}},
    {"depth-range", {200, 4000}, {300, 3500}},
    {"flip-horizontal", {1}, {0}},
    {"flip-vertical", {1}, {0}},
    {"fps-delay", {5}, {7}},
    {"multi-cam", {1, 2, 1}, {0, 1, 0}},
    {"multi-sync", {1}, {0}},
    {"illumination", {1}, {0}},
    {"remove-edge", {1}, {0}},
    {"motion-blur", {1, 50}, {0, 0}},
    {"undistortion", {2}, {1}},
    {"fppn", {1}, {0}},
    {"orthogonal", {1}, {0}},
};

Verdict settings(Bench& bench)
{
    int changed = 0;
    std::string untried;
    bench.changed = true;
    for (const auto& trial : kTrials) {
        endIfInterrupted();
        const Setting& setting = settingByName(trial.name);
        if (setting.name == std::string("frequency") && !IsHtFamily(bench.n)) {
            untried = "; this model has one frequency";
            continue;
        }
        const auto valuesOf = [&](const int* values) { return std::vector(values, values + setting.values.size()); };
        Assignment wanted{&setting, valuesOf(trial.first)};
        if (setting.get(bench.n) == wanted.json())
            wanted.values = valuesOf(trial.second);
        if (setting.set(bench.n, wanted.values.data()) != 1)
            return fails(formatted("%s=%s was refused", setting.name, wanted.text().c_str()));
        if (const Json got = setting.get(bench.n); got != wanted.json())
            return fails(
                formatted("%s reads %s after %s", setting.name, settingText(got).c_str(), wanted.text().c_str()));
        ++changed;
    }
    return passes(formatted("%d changed and read back%s", changed, untried.c_str()));
}

Verdict settingsBack(Bench& bench)
{
    if (!bench.putBack())
        return fails("the camera did not take its settings back");
    const std::vector<std::string> now = bench.settings();
    for (size_t i = 0; i < now.size(); ++i)
        if (now[i] != bench.settingsBefore[i])
            return fails(
                formatted("%s is %s, was %s", allSettings()[i].name, now[i].c_str(), bench.settingsBefore[i].c_str()));
    return hostImage(bench.n) == bench.before ? passes("all as before") : fails("other bytes of the image differ");
}

Verdict starts(Bench& bench)
{
    bench.changed = true;
    bench.grabbing = vqdGrabStart(bench.n) == VQD_OK;
    return judge(bench.grabbing, bench.grabbing ? "grabbing" : "refused");
}

Verdict frames(Bench& bench)
{
    using Clock = std::chrono::steady_clock;
    Clock::time_point start;
    bench.lines.take();
    FrameInfo last{};
    for (int i = 0; i < bench.frameCount; ++i) {
        if (!bench.read(bench.frame))
            break;
        if (i == 0)
            start = Clock::now();
        else
            bench.ordered = bench.ordered && bench.frame.info.nTimeStamp >= last.nTimeStamp &&
                            bench.frame.info.nFrameCount == last.nFrameCount + 1;
        last = bench.frame.info;
        ++bench.frames;
    }
    const std::vector<std::string> lines = bench.lines.take();
    bench.badFrames = countStarting(lines, kWrongStartCode);
    bench.failedTransfers = countStarting(lines, kTransferFailed);
    if (countStarting(lines, kNoUsbMemory) > 0)
        return fails(NoUsbMemory().what());
    if (bench.lost)
        return fails(formatted("the camera is lost after %d frames", bench.frames));
    bench.rate = (bench.frames - 1) / std::chrono::duration<double>(Clock::now() - start).count();
    return judge(bench.failedTransfers == 0, formatted("%d read, %.1f a second, %d failed transfers", bench.frames,
                                                       bench.rate, bench.failedTransfers));
}

Verdict startCodes(Bench& bench)
{
    return judge(bench.badFrames == 0, formatted("%d of %d frames wrong", bench.badFrames, bench.frames));
}

Verdict timeStamps(Bench& bench)
{
    return judge(bench.ordered, bench.ordered ? "in order, none missing" : "they do not follow each other");
}

Verdict temperature(Bench& bench)
{
    const double degrees = vqdGetTemperature(bench.n);
    return judge(degrees > -20 && degrees < 95, formatted("%.1f", degrees));
}

// Each pixel must be 0 or within the depth range.
Verdict depth(Bench& bench)
{
    int least = 0, most = 0;
    vqdGetDepthRange(bench.n, &least, &most);
    int valid = 0, outside = 0;
    for (const uint16_t value : bench.frame.depth)
        if (value != 0) {
            ++valid;
            outside += value < least || value > most;
        }
    if (valid == 0)
        return skips("no pixel is valid: does the camera see something within its range?");
    return judge(outside == 0, formatted("%d %% of the pixels valid, %d outside %d to %d mm", valid * 100 / VQD_PIXELS,
                                         outside, least, most));
}

using Plane = std::array<uint16_t, VQD_PIXELS>;

// The mean difference between two planes, the second mirrored or not.
double difference(const Plane& a, const Plane& b, bool columns, bool rows)
{
    double sum = 0;
    for (int y = 0; y < VQD_HEIGHT; ++y)
        for (int x = 0; x < VQD_WIDTH; ++x) {
            const int column = columns ? VQD_WIDTH - 1 - x : x, row = rows ? VQD_HEIGHT - 1 - y : y;
            sum += std::abs(a[VQD_WIDTH * y + x] - b[VQD_WIDTH * row + column]);
        }
    return sum / int{VQD_PIXELS};
}

// A frame after a change. The first ones may have been exposed before it.
bool readChanged(Bench& bench)
{
    constexpr int kEnough = 3;
    for (int i = 0; i < kEnough; ++i)
        if (!bench.read(bench.frame))
            return false;
    return true;
}

// Flips while grabbing, and looks for it in the amplitude. Nothing can be seen of it in a scene that looks the same in
// the mirror.
Verdict flip(Bench& bench, const char* name, bool columns)
{
    constexpr double kClear = 0.8;
    const Setting& setting = settingByName(name);
    const int other = settingText(setting.get(bench.n)) == "1" ? 0 : 1;
    const Plane straight = bench.frame.amplitude;
    if (setting.set(bench.n, &other) != 1)
        return fails("refused");
    if (!readChanged(bench))
        return fails("the camera is lost");
    const Plane flipped = bench.frame.amplitude;
    const int back = 1 - other;
    setting.set(bench.n, &back);
    if (!readChanged(bench))
        return fails("the camera is lost");
    const double mirrored = difference(flipped, straight, columns, !columns);
    const double unchanged = difference(flipped, straight, false, false);
    if (mirrored < kClear * unchanged)
        return passes(formatted("the image is mirrored (difference %.1f, unmirrored %.1f)", mirrored, unchanged));
    if (unchanged < kClear * mirrored)
        return fails("the image is not mirrored");
    return skips("the scene looks the same in the mirror");
}

Verdict flipHorizontal(Bench& bench)
{
    return flip(bench, "flip-horizontal", true);
}

Verdict flipVertical(Bench& bench)
{
    return flip(bench, "flip-vertical", false);
}

Verdict nextFrame(Bench& bench)
{
    return bench.read(bench.frame) ? passes("a frame came") : fails("no frame came after it");
}

Verdict stopAndStart(Bench& bench)
{
    if (vqdGrabStop(bench.n) != VQD_OK)
        return fails("it does not stop");
    if (vqdGrabStart(bench.n) != VQD_OK)
        return fails("it does not start again");
    return nextFrame(bench);
}

Verdict reopen(Bench& bench)
{
    if (vqdDeviceReOpen(bench.n) != VQD_OK)
        return fails("the camera was not found again");
    return nextFrame(bench);
}

Verdict putBack(Bench& bench)
{
    if (!bench.putBack())
        return fails("the camera did not take its settings back");
    return judge(hostImage(bench.n) == bench.before, "all 512 bytes");
}

Verdict untouchedEeprom(Bench& bench)
{
    HostImage stored{};
    bench.lines.take();
    const bool read = vqdEEPROM_ParameterData_Load(bench.n, stored.data()) == 1;
    return judge(read && std::equal(stored.begin(), stored.begin() + VQD_EEPROM_BYTES, bench.before.begin()),
                 formatted("%d bytes compared", VQD_EEPROM_BYTES));
}

bool always(const Bench&)
{
    return true;
}
bool claimed(const Bench& bench)
{
    return bench.claimed && !bench.lost;
}
bool grabbing(const Bench& bench)
{
    return bench.grabbing && !bench.lost;
}
bool framesCame(const Bench& bench)
{
    return bench.frames > 1;
}

constexpr Check kChecks[] = {
    {"EEPROM", always, eeprom},
    {"lens", always, lens},
    {"open", always, opens},
    {"settings", claimed, settings},
    {"settings put back", claimed, settingsBack},
    {"start", claimed, starts},
    {"frames", grabbing, frames},
    {"start codes", framesCame, startCodes},
    {"time stamps", framesCame, timeStamps},
    {"temperature", framesCame, temperature},
    {"depth", framesCame, depth},
    {"horizontal flip", grabbing, flipHorizontal},
    {"vertical flip", grabbing, flipVertical},
    {"stop and start", grabbing, stopAndStart},
    {"re-open", grabbing, reopen},
    {"put back", claimed, putBack},
    {"EEPROM untouched", claimed, untouchedEeprom},
};

} // namespace

std::span<const Check> selftestChecks()
{
    return kChecks;
}
