// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// vqd selftest: a checklist on a real camera. What it changes it puts back: at the end, after a failure and after a
// signal.
#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <memory>

#include <CLI/CLI.hpp>

#include "camera.h"
#include "commands.h"
#include "common.h"
#include "config/param_image.h"
#include "device/models.h"
#include "host/failure.h"
#include "interrupt.h"
#include "host/lens_json.h"
#include "host/library_lines.h"
#include "output.h"
#include "host/settings.h"

namespace
{

enum class Result { pass, fail, skip };

struct Verdict {
    Result result;
    std::string text;
};

template <typename... Values> Verdict verdict(Result result, const char* format, Values... values)
{
    if constexpr (sizeof...(values) == 0) {
        return {result, format};
    } else {
        char text[512];
        snprintf(text, sizeof text, format, values...);
        return {result, text};
    }
}

template <typename... Values> Verdict judge(bool good, const char* format, Values... values)
{
    return verdict(good ? Result::pass : Result::fail, format, values...);
}

using Image = std::array<unsigned char, VQD_IMAGE_BYTES>;

Image hostImage(int n)
{
    Image image{};
    vqdParameterData_Load(n, image.data());
    return image;
}

// The camera under test, as it was and as it does.
struct Bench {
    Bench(const Camera& camera, LibraryLines& lines, int frames)
        : camera(camera), n(camera.nIndex), lines(lines), frameCount(frames), before(hostImage(n)),
          settingsBefore(settings())
    {
    }
    ~Bench() { putBack(); }
    Bench(const Bench&) = delete;
    Bench& operator=(const Bench&) = delete;

    // The host's image and, with it, the camera's working image; what the library derives from it too. The EEPROM is
    // only read.
    bool putBack()
    {
        if (!changed)
            return true;
        if (grabbing)
            vqdGrabStop(n);
        grabbing = false;
        Image image = before;
        if (vqdEEPROM_ParameterData_Load(n, image.data()) != 1 || vqdWriteToDevice(n, before.data()) != 1)
            return false;
        changed = false;
        return true;
    }

    std::vector<std::string> settings() const
    {
        std::vector<std::string> values;
        for (const Setting& setting : allSettings())
            values.push_back(setting.needsFrame ? "" : settingText(setting.get(n)));
        return values;
    }

    bool read(Frame& into)
    {
        uint16_t* images[2] = {into.amplitude.data(), into.depth.data()};
        const int result = vqdReadFromDevice(n, images, &into.info);
        endIfInterrupted();
        lost = result <= 0;
        return !lost;
    }

    const Camera& camera;
    const int n;
    LibraryLines& lines;
    const int frameCount;
    const Image before;
    const std::vector<std::string> settingsBefore;
    bool claimed = false, grabbing = false, changed = false, lost = false;
    Frame frame; // the latest

    // What the run of frames showed.
    double rate = 0;
    bool ordered = true;
    int frames = 0, badFrames = 0, failedTransfers = 0;
};

Verdict eeprom(Bench& bench)
{
    Image image{};
    bench.lines.take();
    if (vqdEEPROM_ParameterData_Load(bench.n, image.data()) != 1)
        return verdict(Result::fail, "it can not be read");
    const std::vector<std::string> lines = bench.lines.take();
    const bool fallback = std::any_of(lines.begin(), lines.end(), [](const std::string& line) {
        return line.find("EEPROM Parameter Load Fail") != std::string::npos;
    });
    return judge(!fallback && image[kSignature] == kSignatureValue,
                 fallback ? "no valid signature; the library uses factory settings" : "signature %02x",
                 image[kSignature]);
}

Verdict lens(Bench& bench)
{
    float k[4] = {}, distortion[6] = {};
    vqdGetLensParameter(bench.n, k, distortion);
    return judge(isPlausible({k[0], k[1], k[2], k[3]}), "focal length %.1f, %.1f, centre %.1f, %.1f", k[0], k[1], k[2],
                 k[3]);
}

Verdict opens(Bench& bench)
{
    bench.claimed = tryClaim(bench.camera);
    return judge(bench.claimed, bench.claimed ? "claimed" : "another program may hold it; see vqd doctor");
}

// Two values a setting: one of them is not the present one.
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

std::string joined(const int* values, int count)
{
    std::string text;
    for (int i = 0; i < count; ++i)
        text += (i > 0 ? "," : "") + std::to_string(values[i]);
    return text;
}

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
        const std::string present = settingText(setting.get(bench.n));
        const int* values = joined(trial.first, setting.arguments) != present ? trial.first : trial.second;
        const std::string wanted = joined(values, setting.arguments);
        if (setting.set(bench.n, values) != 1)
            return verdict(Result::fail, "%s=%s was refused", setting.name, wanted.c_str());
        if (const std::string got = settingText(setting.get(bench.n)); got != wanted)
            return verdict(Result::fail, "%s reads %s after %s", setting.name, got.c_str(), wanted.c_str());
        ++changed;
    }
    return verdict(Result::pass, "%d changed and read back%s", changed, untried.c_str());
}

Verdict settingsBack(Bench& bench)
{
    if (!bench.putBack())
        return verdict(Result::fail, "the camera did not take its settings back");
    const std::vector<std::string> now = bench.settings();
    for (size_t i = 0; i < now.size(); ++i)
        if (now[i] != bench.settingsBefore[i])
            return verdict(Result::fail, "%s is %s, was %s", allSettings()[i].name, now[i].c_str(),
                           bench.settingsBefore[i].c_str());
    return judge(hostImage(bench.n) == bench.before, "all as before");
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
        return verdict(Result::fail, "%s", NoUsbMemory().what());
    if (bench.lost)
        return verdict(Result::fail, "the camera is lost after %d frames", bench.frames);
    bench.rate = (bench.frames - 1) / std::chrono::duration<double>(Clock::now() - start).count();
    return judge(bench.failedTransfers == 0, "%d read, %.1f a second, %d failed transfers", bench.frames, bench.rate,
                 bench.failedTransfers);
}

Verdict startCodes(Bench& bench)
{
    return judge(bench.badFrames == 0, "%d of %d frames wrong", bench.badFrames, bench.frames);
}

Verdict timeStamps(Bench& bench)
{
    return judge(bench.ordered, bench.ordered ? "in order, none missing" : "they do not follow each other");
}

Verdict temperature(Bench& bench)
{
    const double degrees = vqdGetTemperature(bench.n);
    return judge(degrees > -20 && degrees < 95, "%.1f", degrees);
}

// A pixel is 0 or within the depth range.
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
        return verdict(Result::skip, "no pixel is valid: does the camera see something within its range?");
    return judge(outside == 0, "%d %% of the pixels valid, %d outside %d to %d mm", valid * 100 / VQD_PIXELS, outside,
                 least, most);
}

using Plane = std::array<uint16_t, VQD_PIXELS>;

// Mean difference to a picture, mirrored or not.
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

// Flips while grabbing. The amplitude shows it; a scene that looks the same in the mirror does not.
Verdict flip(Bench& bench, const char* name, bool columns)
{
    constexpr double kClear = 0.8;
    const Setting& setting = settingByName(name);
    const int other = settingText(setting.get(bench.n)) == "1" ? 0 : 1;
    const Plane straight = bench.frame.amplitude;
    if (setting.set(bench.n, &other) != 1)
        return verdict(Result::fail, "refused");
    for (int i = 0; i < 3; ++i) // frames may be under way that were exposed before
        if (!bench.read(bench.frame))
            return verdict(Result::fail, "the camera is lost");
    const Plane flipped = bench.frame.amplitude;
    const int back = 1 - other;
    setting.set(bench.n, &back);
    for (int i = 0; i < 3; ++i)
        if (!bench.read(bench.frame))
            return verdict(Result::fail, "the camera is lost");
    const double mirrored = difference(flipped, straight, columns, !columns);
    const double unchanged = difference(flipped, straight, false, false);
    if (mirrored < kClear * unchanged)
        return verdict(Result::pass, "the image is mirrored (differs by %.1f, else by %.1f)", mirrored, unchanged);
    if (unchanged < kClear * mirrored)
        return verdict(Result::fail, "the image is not mirrored");
    return verdict(Result::skip, "the scene looks the same in the mirror");
}

Verdict flipHorizontal(Bench& bench)
{
    return flip(bench, "flip-horizontal", true);
}

Verdict flipVertical(Bench& bench)
{
    return flip(bench, "flip-vertical", false);
}

Verdict stopAndStart(Bench& bench)
{
    if (vqdGrabStop(bench.n) != VQD_OK)
        return verdict(Result::fail, "it does not stop");
    if (vqdGrabStart(bench.n) != VQD_OK)
        return verdict(Result::fail, "it does not start again");
    return judge(bench.read(bench.frame), bench.lost ? "no frame after it" : "a frame came");
}

Verdict reopen(Bench& bench)
{
    if (vqdDeviceReOpen(bench.n) != VQD_OK)
        return verdict(Result::fail, "the camera was not found again");
    return judge(bench.read(bench.frame), bench.lost ? "no frame after it" : "a frame came");
}

Verdict putBack(Bench& bench)
{
    if (!bench.putBack())
        return verdict(Result::fail, "the camera did not take its settings back");
    return judge(hostImage(bench.n) == bench.before, "all 512 bytes");
}

Verdict untouchedEeprom(Bench& bench)
{
    Image stored{};
    bench.lines.take();
    const bool read = vqdEEPROM_ParameterData_Load(bench.n, stored.data()) == 1;
    return judge(read && std::equal(stored.begin(), stored.begin() + VQD_EEPROM_BYTES, bench.before.begin()),
                 "%d bytes compared", VQD_EEPROM_BYTES);
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

constexpr struct {
    const char* name;
    bool (*possible)(const Bench&); // else skipped
    Verdict (*run)(Bench&);
} kChecks[] = {
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

constexpr const char* kResultNames[] = {"PASS", "FAIL", "SKIP"};

int selftest(int frameCount)
{
    Output output;
    LibraryLines lines;
    const Session session;
    const Camera& camera = session.chooseToChange();
    session.loadAlone(camera);
    Json json = document("selftest");
    json["camera"] = identityJson(camera);
    json["checks"] = Json::array();
    const auto bench = std::make_unique<Bench>(camera, lines, frameCount);
    if (!common.json)
        output.print("%s, serial %s\n", camera.szDeviceName, camera.szSerialNumber);
    int failed = 0;
    for (const auto& check : kChecks) {
        endIfInterrupted();
        const Verdict found =
            check.possible(*bench) ? check.run(*bench) : Verdict{Result::skip, "not possible after what failed before"};
        const char* name = kResultNames[static_cast<int>(found.result)];
        failed += found.result == Result::fail;
        json["checks"].push_back({{"name", check.name}, {"result", name}, {"detail", found.text}});
        if (!common.json) {
            output.print("%s  %-17s  %s\n", name, check.name, found.text.c_str());
            output.finish();
        }
    }
    json["passed"] = failed == 0;
    if (common.json)
        output.print(json);
    else
        output.print(failed == 0 ? "passed\n" : "failed: %d of %zu checks\n", failed, std::size(kChecks));
    output.finish();
    lines.take();
    if (failed > 0)
        output.showLibraryLines();
    return failed == 0 ? kDone : kFailed;
}

} // namespace

void addSelftest(CLI::App& app, Run& run)
{
    CLI::App* command = app.add_subcommand("selftest", "Checks a camera, item by item, and leaves it as it was");
    const auto frames = std::make_shared<int>(60);
    command->add_option("-n,--frames", *frames, "Frames to read for the checks on frames")
        ->check(CLI::Range(2, 1'000'000))
        ->capture_default_str();
    addCommon(*command, kCamera | kJson);
    command->footer(
        "Let the camera look at something that is not the same in the mirror. Takes about 20 s. Exit code 0 "
        "when nothing failed, else 1.\nExample: vqd selftest --json");
    command->callback([&run, frames] { run = [frames] { return selftest(*frames); }; });
}
