// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// vqd grab -c all: a thread for each camera, which takes frames from its worker and writes them.
#include <atomic>
#include <thread>

#include "host/assignments.h"
#include "host/documents.h"
#include "host/host_time.h"

#include "all_cameras.h"
#include "grab.h"
#include "interrupt.h"
#include "output.h"
#include "progress.h"

namespace
{

using Clock = Arrivals::Clock;

Arrival arrivalOf(const vqd_client_frame& frame)
{
    const uint64_t lost = std::min<uint64_t>(frame.dropped + frame.missed, INT_MAX);
    return {realTimePoint(frame.real_time_ns), (frame.flags & VQD_CLIENT_FRAME_REOPENED) != 0, static_cast<int>(lost)};
}

// The grabbing from one camera.
class Job
{
public:
    // Fails when there is no room for the files.
    Job(const GrabOptions& options, WorkerCamera& camera) : m_options(options), m_camera(camera)
    {
        m_options.directory = std::filesystem::path(options.directory) / camera.name();
        requireRoomForFiles(m_options);
        m_report.camera = camera.identity();
    }
    ~Job()
    {
        if (m_thread.joinable())
            m_thread.join();
    }
    Job(const Job&) = delete;
    Job& operator=(const Job&) = delete;

    void start()
    {
        m_thread = std::thread([this] { run(); });
    }
    int frames() const { return m_frames; }
    bool isDone() const { return m_done; }

    // Once it is done.
    const std::optional<Failure>& failure() const { return m_failure; }
    Json json() const
    {
        if (!m_failure)
            return reportJson(m_options, m_report);
        return {{"camera", m_report.camera},
                {"error", m_failure->what()},
                {"frames", m_frames.load()},
                {"directory", m_options.directory}};
    }
    std::string text() const { return m_failure ? "" : reportText(m_options, m_report); }

private:
    void run()
    {
        try {
            grab();
        } catch (const Failure& failure) {
            m_failure.emplace(m_camera.named(failure));
        } catch (const std::exception& error) {
            m_failure.emplace(m_camera.named({kFailed, error.what()}));
        }
        m_done = true;
    }

    void grab()
    {
        const auto frame = std::make_unique<DepthFrame>();
        grabFrames(
            m_options, [this](DepthFrame& into) { return read(into); }, *frame, [this](int n) { m_frames = n; });
        const Json settings = m_camera.settings(R"(["temperature","logic-version"])");
        m_report.temperature = settings.at("temperature");
        m_report.logicVersion = settings.at("logic-version");
        m_report.depth = centreDepth(*frame);
    }

    Arrival read(DepthFrame& into)
    {
        constexpr int kStepMs = 100;
        for (;;) {
            const std::optional<vqd_client_frame> frame = m_camera.next(kStepMs);
            endIfInterrupted();
            if (frame) {
                copyFrame(*frame, into);
                const Arrival arrival = arrivalOf(*frame);
                m_report.arrivals.add(arrival, Clock::time_point(std::chrono::nanoseconds(frame->monotonic_time_ns)));
                return arrival;
            }
            m_camera.requireFrames();
        }
    }

    GrabOptions m_options;
    WorkerCamera& m_camera;
    GrabReport m_report{};
    std::optional<Failure> m_failure;
    std::atomic<int> m_frames = 0;
    std::atomic<bool> m_done = false;
    std::thread m_thread; // last: it uses all of the above
};

using Jobs = std::vector<std::unique_ptr<Job>>;

// Shows how far the slowest is.
void run(const Jobs& jobs, int frames)
{
    constexpr auto kBetweenLooks = std::chrono::milliseconds(50);
    for (const auto& job : jobs)
        job->start();
    Progress progress("frame", frames);
    for (;;) {
        int done = frames;
        bool all = true;
        for (const auto& job : jobs) {
            all = all && job->isDone();
            done = job->isDone() ? done : std::min(done, job->frames());
        }
        if (all)
            return;
        progress.show(done);
        std::this_thread::sleep_for(kBetweenLooks);
    }
}

// Fails with all of them and the code of the first; "interrupted, nothing saved" only when that is true of all.
void requireNone(const std::vector<Failure>& failures)
{
    if (failures.empty())
        return;
    std::string sentence;
    for (const Failure& failure : failures)
        sentence += (sentence.empty() ? "" : "; ") + std::string(failure.what());
    const auto first = std::ranges::find_if(failures, [](const Failure& one) { return one.code != kInterrupted; });
    throw Failure(first != failures.end() ? first->code : kInterrupted, sentence);
}

} // namespace

int grabAll(const GrabOptions& options)
{
    parseForFrames(options.settings);
    if (!options.cloud.empty())
        throw Failure(kUsage, "--cloud needs one camera, not all of them");
    Output output;
    requireWritableDirectory(options.directory);
    AllCameras cameras({.settings = options.settings});
    Jobs jobs;
    for (WorkerCamera& camera : cameras.all())
        jobs.push_back(std::make_unique<Job>(options, camera));
    run(jobs, options.frames);
    Json json = document("grab");
    json["cameras"] = Json::array();
    std::string text;
    std::vector<Failure> failures;
    for (const auto& job : jobs) {
        json["cameras"].push_back(job->json());
        text += job->text();
        if (job->failure())
            failures.push_back(*job->failure());
    }
    output.finish(json, text);
    requireNone(failures);
    cameras.requireAll();
    return kDone;
}
