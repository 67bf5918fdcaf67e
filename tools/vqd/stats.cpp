// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// vqd stats: how regularly frames arrive, a line for each second.
#include <chrono>
#include <memory>
#include <optional>

#include <CLI/CLI.hpp>

#include "all_cameras.h"
#include "cameras.h"
#include "commands.h"
#include "interrupt.h"
#include "options.h"
#include "output.h"
#include "stats.h"

namespace
{

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

// What happened in some period.
struct Tally {
    int frames = 0, errors = 0, wrongStartCodes = 0, reopens = 0;
    Intervals intervals;
};

class Statistics
{
public:
    explicit Statistics(const ListedCamera& camera) : m_camera(camera), m_start(Clock::now()), m_second(m_start) {}

    double seconds() const { return Seconds(Clock::now() - m_start).count(); }
    const Tally& all() const { return m_all; }

    // Reads a frame and takes note of how it went.
    void read(Stream& stream, DepthFrame& frame)
    {
        std::optional<Failure> failure;
        try {
            stream.tryRead(frame);
        } catch (const Failure& caught) {
            failure = caught;
        }
        const Clock::time_point now = Clock::now();
        const bool came = !failure && !stream.reopened();
        m_outage = m_outage || stream.reopened();
        const double passed = Seconds(now - m_previous.value_or(m_start)).count() * 1000;
        for (Tally* tally : {&m_all, &m_now}) {
            tally->errors += countStarting(stream.lines(), kTransferFailed);
            tally->wrongStartCodes += countStarting(stream.lines(), kWrongStartCode);
            tally->reopens += stream.reopened(); // even if the read failed or was interrupted
            tally->frames += came;
            if (!came || m_outage) // an outage lasts until a frame comes
                tally->intervals.addGap(passed);
            else if (m_previous)
                tally->intervals.add(passed);
        }
        if (came) {
            m_previous = now;
            m_outage = false;
        }
        if (failure)
            throw Failure(*failure);
    }

    // Prints a line when a second has passed.
    void tick(Output& output)
    {
        const double passed = Seconds(Clock::now() - m_second).count();
        if (passed < 1)
            return;
        if (common.json)
            printJson(output, "second", m_now, passed);
        else
            printLine(output, m_now, passed);
        output.finish();
        m_now = {};
        // Lines stay in step with the start, unless a read took longer than a second.
        m_second = passed < 2 ? m_second + std::chrono::seconds(1) : Clock::now();
    }

    void summary(Output& output) const
    {
        const double passed = seconds();
        if (common.json) {
            printJson(output, "summary", m_all, passed);
            return;
        }
        output.print("%d frames in %.1f s: %.2f a second\n", m_all.frames, passed, m_all.frames / passed);
        const Intervals& intervals = m_all.intervals;
        output.print("interval %.1f ms, jitter %.1f ms, from %.1f to %.1f ms\n", intervals.mean(), intervals.jitter(),
                     intervals.least, intervals.most);
        output.print("failed transfers %d, wrong start codes %d, re-opens %d\n", m_all.errors, m_all.wrongStartCodes,
                     m_all.reopens);
    }

    static void header(Output& output)
    {
        if (!common.json)
            output.print("  time   fps  interval  jitter     max  errors  start-codes  re-opens  temperature\n");
    }

private:
    void printLine(Output& output, const Tally& tally, double passed) const
    {
        output.print("%5.0fs %5.1f %7.1fms %5.1fms %5.1fms %7d %12d %9d %12.1f\n", seconds(), tally.frames / passed,
                     tally.intervals.mean(), tally.intervals.jitter(), tally.intervals.most, tally.errors,
                     tally.wrongStartCodes, tally.reopens, vqdGetTemperature(m_camera.nIndex));
    }

    void printJson(Output& output, const char* type, const Tally& tally, double passed) const
    {
        Json json = document("stats");
        json["type"] = type;
        json["camera"] = identityJson(m_camera)["serial"];
        json["time"] = seconds();
        json["duration"] = passed;
        json["frames"] = tally.frames;
        json["frames-per-second"] = tally.frames / passed;
        json["interval-ms"] = tally.intervals.json();
        json["transfer-errors"] = tally.errors;
        json["wrong-start-codes"] = tally.wrongStartCodes;
        json["reopens"] = tally.reopens;
        json["temperature"] = m_dTemperature[m_camera.nIndex];
        output.print("%s\n", json.dump(-1, ' ', false, Json::error_handler_t::replace).c_str());
    }

    const ListedCamera& m_camera;
    Clock::time_point m_start, m_second;
    std::optional<Clock::time_point> m_previous; // frame
    bool m_outage = false;                       // the camera was re-opened since then
    Tally m_all, m_now;
};

int stats(const StatsOptions& options)
{
    Output output;
    const Cameras cameras;
    const ListedCamera& camera = cameras.choose();
    cameras.loadWithProfile(camera);
    const auto frame = std::make_unique<DepthFrame>();
    Stream stream(camera);
    Statistics statistics(camera);
    Statistics::header(output);
    output.finish();
    try {
        while (!interrupted() && (options.seconds == 0 || statistics.seconds() < options.seconds) &&
               (options.frames == 0 || statistics.all().frames < options.frames)) {
            statistics.read(stream, *frame);
            statistics.tick(output);
        }
    } catch (const Failure& failure) {
        if (failure.code != kInterrupted) { // a signal is the usual way to end
            statistics.summary(output);
            output.finish();
            throw;
        }
    }
    statistics.summary(output);
    output.finish();
    return kDone;
}

} // namespace

void addStats(CLI::App& app, Run& run)
{
    CLI::App* command =
        app.add_subcommand("stats", "Shows how regularly frames arrive, a line each second, until Ctrl-C");
    const auto options = std::make_shared<StatsOptions>();
    command->add_option("-n,--frames", options->frames, "Number of frames after which it ends")
        ->check(CLI::Range(1, 100'000'000));
    command->add_option("--for", options->seconds, "Number of seconds after which it ends")
        ->check(CLI::Range(1, 100'000'000))
        ->type_name("SECONDS");
    addCommon(*command, kCamera | kAllCameras | kJson | kProfile);
    command->footer("An interval is the time between two frames as they arrive, and jitter is its standard deviation. "
                    "The longest interval includes outages. With --json, each line is an object.\n"
                    "-c all shows every camera, each by way of a worker; -n frames are then those of each.\n"
                    "Example: vqd stats --for 60");
    command->callback(
        [&run, options] { run = [options] { return allCamerasChosen() ? statsAll(*options) : stats(*options); }; });
}
