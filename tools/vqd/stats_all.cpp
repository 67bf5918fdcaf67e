// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// vqd stats -c all: a line for each camera each second. Intervals are between the moments at which the workers' reads
// returned, so this command's own delays are not in them.
#include "stats.h"

#include <optional>

#include "host/documents.h"
#include "host/formatted.h"

#include "all_cameras.h"
#include "interrupt.h"
#include "output.h"
#include "options.h"

namespace
{

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

// What happened in some period.
struct Tally {
    int frames = 0, reopens = 0;
    uint64_t lost = 0;
    double temperature = 0;
    Intervals intervals;
};

class CameraStats
{
public:
    explicit CameraStats(WorkerCamera& camera) : m_camera(camera) {}

    const WorkerCamera& camera() const { return m_camera; }
    const Tally& all() const { return m_all; }

    // Takes note of all frames that have come.
    void read()
    {
        while (const std::optional<vqd_client_frame> frame = m_camera.next(0))
            add(*frame);
    }

    // Ends the second.
    Tally takeSecond()
    {
        m_second.temperature = m_all.temperature;
        return std::exchange(m_second, {});
    }

    // Whether it has all frames that were asked for, or no more will come.
    bool isDone(int frames) const { return m_all.frames >= frames || m_camera.silence() > kMostSilence; }

private:
    void add(const vqd_client_frame& frame)
    {
        const bool reopened = (frame.flags & VQD_CLIENT_FRAME_REOPENED) != 0;
        const bool follows = m_previous != 0 && frame.session == m_session;
        const double passed = static_cast<double>(frame.monotonic_time_ns - m_previous) / 1e6;
        for (Tally* tally : {&m_all, &m_second}) {
            ++tally->frames;
            tally->reopens += reopened;
            tally->lost += frame.missed + (m_previous != 0 ? frame.dropped : 0);
            tally->temperature = frame.temperature;
            if (follows && !reopened)
                tally->intervals.add(passed);
            else if (m_previous != 0)
                tally->intervals.addGap(passed);
        }
        m_previous = frame.monotonic_time_ns;
        m_session = frame.session;
    }

    WorkerCamera& m_camera;
    int64_t m_previous = 0; // frame's time
    uint64_t m_session = 0;
    Tally m_all, m_second;
};

class Report
{
public:
    Report(Output& output, std::vector<CameraStats>& cameras) : m_output(output), m_cameras(cameras)
    {
        if (!common.json)
            m_output.print("  time  camera            fps  interval  jitter     max   lost  re-opens  temperature\n");
        m_output.finish();
    }

    double seconds() const { return Seconds(Clock::now() - m_start).count(); }

    // Prints lines when a second has passed.
    void tick()
    {
        const double passed = Seconds(Clock::now() - m_second).count();
        if (passed < 1)
            return;
        for (CameraStats& camera : m_cameras)
            print("second", camera, camera.takeSecond(), passed);
        m_output.finish();
        m_second = passed < 2 ? m_second + std::chrono::seconds(1) : Clock::now();
    }

    void summary()
    {
        for (const CameraStats& camera : m_cameras)
            print("summary", camera, camera.all(), seconds());
        m_output.finish();
    }

private:
    void print(const char* type, const CameraStats& camera, const Tally& tally, double passed)
    {
        if (common.json)
            printJson(type, camera, tally, passed);
        else
            printLine(type, camera, tally, passed);
    }

    void printLine(const std::string& type, const CameraStats& camera, const Tally& tally, double passed)
    {
        const Intervals& intervals = tally.intervals;
        const std::string time = type == "summary" ? "all" : formatted("%.0fs", seconds());
        m_output.print("%6s  %-14s  %5.1f %7.1fms %5.1fms %5.1fms %6llu %9d %12.1f\n", time.c_str(),
                       camera.camera().name().c_str(), tally.frames / passed, intervals.mean(), intervals.jitter(),
                       intervals.most, static_cast<unsigned long long>(tally.lost), tally.reopens, tally.temperature);
    }

    void printJson(const char* type, const CameraStats& camera, const Tally& tally, double passed)
    {
        Json json = document("stats");
        json["type"] = type;
        json["camera"] = camera.camera().identity()["serial"];
        json["port"] = camera.camera().port();
        json["time"] = seconds();
        json["duration"] = passed;
        json["frames"] = tally.frames;
        json["frames-per-second"] = tally.frames / passed;
        json["interval-ms"] = tally.intervals.json();
        json["lost-estimate"] = tally.lost;
        json["reopens"] = tally.reopens;
        json["temperature"] = tally.temperature;
        m_output.print("%s\n", json.dump(-1, ' ', false, Json::error_handler_t::replace).c_str());
    }

    Output& m_output;
    std::vector<CameraStats>& m_cameras;
    const Clock::time_point m_start = Clock::now();
    Clock::time_point m_second = m_start;
};

} // namespace

int statsAll(const StatsOptions& options)
{
    constexpr int kStepMs = 50;
    Output output;
    AllCameras cameras({});
    std::vector<CameraStats> stats(cameras.all().begin(), cameras.all().end());
    Report report(output, stats);
    const auto isDone = [&](const CameraStats& camera) { return camera.isDone(options.frames); };
    while (!interrupted() && (options.seconds == 0 || report.seconds() < options.seconds) &&
           (options.frames == 0 || !std::ranges::all_of(stats, isDone))) {
        cameras.wait(kStepMs);
        for (CameraStats& camera : stats)
            camera.read();
        report.tick();
    }
    report.summary();
    cameras.requireAll();
    return kDone;
}
