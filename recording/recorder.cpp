// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Between the worker's calls, from several threads, and the recording that is under way.
#include "recording/recorder.h"

#include "recording/take.h"

namespace
{

class Recorder : public RecordingSink
{
public:
    explicit Recorder(RecorderOptions options) : m_options(std::move(options)) {}

    void prepare(const ListedCamera& camera) override { m_orthogonal = readOrthogonalTable(camera); }

    Json start(const Json& json, const ListedCamera& camera) override
    {
        const RecordRequest request = recordRequestFrom(json);
        if (request.compact && Packing::missing() != nullptr)
            throw Failure(kUsage, Packing::missing());
        const std::lock_guard lock(m_mutex);
        if (m_take && !m_take->ended())
            throw Failure(kFailed, "this worker is recording already, to " + fileOf(m_take->state()));
        m_take = std::make_unique<Take>(Take::Options{m_options.folder, m_options.keepFree, request,
                                                      factsOf(camera, m_orthogonal), m_options.session, m_options.tell,
                                                      m_options.ends},
                                        m_parameters);
        m_options.tell(m_take->state());
        return m_take->state();
    }

    Json stop() override
    {
        const std::lock_guard lock(m_mutex);
        if (!m_take)
            throw Failure(kFailed, "this worker has recorded nothing");
        m_take->queue().close();
        return m_take->state();
    }

    void end() override
    {
        const std::lock_guard lock(m_mutex);
        m_take.reset();
    }

    void frame(const FrameView& view) override
    {
        constexpr auto kBetweenNews = std::chrono::milliseconds(200);
        const std::lock_guard lock(m_mutex);
        if (!m_take || m_take->ended())
            return;
        m_take->queue().add(view);
        if (const auto now = Clock::now(); now - m_told > kBetweenNews) {
            m_told = now;
            m_options.tell(m_take->state()); // also while the disk keeps the other thread waiting
        }
    }

    void parameters(const Parameters& parameters) override
    {
        m_parameters = std::make_shared<RecordedParameters>(RecordedParameters{
            {parameters.raw.begin(), parameters.raw.end()}, hostValuesOf(parameters.json["camera"]["index"])});
        const std::lock_guard lock(m_mutex);
        if (m_take)
            m_take->queue().change(m_parameters);
    }

    void event(const Json& event) override
    {
        const std::lock_guard lock(m_mutex);
        if (m_take)
            m_take->queue().add({event["event"], event, {event["real-time-ns"], event["monotonic-time-ns"]}});
    }

private:
    using Clock = std::chrono::steady_clock;

    static std::string fileOf(const Json& state) { return state["file"].is_string() ? state["file"] : "another file"; }

    const RecorderOptions m_options;
    Bytes m_orthogonal;                                     // of the loop
    std::shared_ptr<const RecordedParameters> m_parameters; // of the loop
    Clock::time_point m_told;                               // of the loop

    std::mutex m_mutex; // guards the recording itself
    std::unique_ptr<Take> m_take;
};

} // namespace

std::unique_ptr<RecordingSink> makeRecorder(RecorderOptions options)
{
    return std::make_unique<Recorder>(std::move(options));
}

const char* recordingMissing()
{
    return nullptr;
}
