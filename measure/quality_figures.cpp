// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// From the sums of a run to its figures. Each function fills in what belongs together, with a reason for what cannot be
// said.
#include "measure/quality.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>

#include "measure/flying_pixels.h"

namespace
{

constexpr double kPercent = 100;

std::string text(const char* format, double first, double second)
{
    char buffer[128];
    snprintf(buffer, sizeof buffer, format, first, second);
    return buffer;
}

// Whether a ray meets the plane, and at more than 10 degrees: else the least error becomes a large depth.
bool meets(const FittedPlane& plane, const Point& ray)
{
    constexpr double kLeastSine = 0.17;
    const double along = plane.normal.x * ray.x + plane.normal.y * ray.y + plane.normal.z * ray.z;
    return along >= kLeastSine * std::hypot(ray.x, ray.y, ray.z);
}

} // namespace

class QualityFigures
{
public:
    QualityFigures(const QualityRun& run, size_t region, std::optional<double> distance)
        : m_run(run), m_pixels(run.m_pixels), m_region(run.m_regions[region]), m_distance(distance)
    {
        const Rectangle& r = m_region.rectangle;
        for (int y = r.y; y < r.y + r.height; ++y)
            for (int x = r.x; x < r.x + r.width; ++x)
                m_all.push_back(static_cast<size_t>(y * VQD_WIDTH + x));
        std::ranges::copy_if(m_all, std::back_inserter(m_steady), [&](size_t i) { return m_pixels.isSteady(i); });
    }

    RegionQuality all()
    {
        for (const MetricRow& row : allMetrics())
            none(row.metric, "no pixel of the region has a depth in half of the frames");
        m_result.change = m_region.change;
        m_result.residuals.assign(m_all.size(), std::numeric_limits<float>::quiet_NaN());
        set(Metric::fillRate, m_run.frames() > 0 ? kPercent * static_cast<double>(m_region.valid) /
                                                       static_cast<double>(m_all.size() * m_run.frames())
                                                 : 0);
        if (m_steady.empty())
            return m_result;
        double amplitude = 0;
        for (const size_t i : m_steady)
            amplitude += m_pixels.amplitude(i) / static_cast<double>(m_steady.size());
        set(Metric::amplitude, amplitude);
        plane();
        noise();
        photonTransfer();
        changes();
        flying();
        return m_result;
    }

private:
    Figure& figure(Metric metric) { return m_result.figures[static_cast<size_t>(metric)]; }
    void set(Metric metric, double value) { figure(metric) = {value}; }
    void none(Metric metric, const std::string& reason) { figure(metric) = {std::nullopt, reason}; }

    // Whether there are enough frames; else none of these has a value.
    bool needFrames(size_t frames, std::span<const Metric> metrics)
    {
        if (m_run.frames() >= frames)
            return true;
        for (const Metric metric : metrics)
            none(metric, text("it needs %.0f frames, and there are %.0f", static_cast<double>(frames),
                              static_cast<double>(m_run.frames())));
        return false;
    }

    void plane()
    {
        constexpr Metric kOfPlane[] = {Metric::distance, Metric::bias,     Metric::tilt,
                                       Metric::planeRms, Metric::flatness, Metric::fixedPattern};
        std::vector<Point> points;
        for (const size_t i : m_steady)
            if (const Point3f& ray = m_run.m_rays[i]; std::isfinite(ray.x + ray.y + ray.z))
                points.push_back(pointAt(ray, m_pixels.depth(i)));
        const std::optional<FittedPlane> plane = planeThrough(points);
        const double onAxis = plane ? plane->along({0, 0, 1}) : 0;
        if (!plane || !std::isfinite(onAxis)) {
            for (const Metric metric : kOfPlane)
                none(metric, "the points of the region do not span a plane");
            return;
        }
        set(Metric::distance, onAxis);
        set(Metric::tilt, plane->tilt);
        set(Metric::flatness, plane->rms);
        if (m_region.planes > 0)
            set(Metric::planeRms, std::sqrt(m_region.squares / m_region.planes));
        else
            none(Metric::planeRms, "no single frame has enough pixels with a depth");
        if (m_distance)
            set(Metric::bias, onAxis - *m_distance);
        else
            none(Metric::bias, "the known distance was not given");
        fixedPattern(*plane);
    }

    // What the mean image keeps of the temporal noise is taken away.
    void fixedPattern(const FittedPlane& plane)
    {
        constexpr size_t kFitted = 3; // numbers that make a plane
        double squares = 0, noise = 0;
        size_t count = 0;
        for (size_t at = 0; at < m_all.size(); ++at) {
            const size_t i = m_all[at];
            const Point3f& direction = m_run.m_rays[i];
            if (!m_pixels.isSteady(i) || !std::isfinite(direction.x + direction.y + direction.z))
                continue;
            const Point ray = pointAt(direction, 1);
            if (!meets(plane, ray))
                continue;
            const double residual = m_pixels.depth(i) - plane.along(ray);
            m_result.residuals[at] = static_cast<float>(residual);
            if (m_pixels.pairs(i) == 0)
                continue;
            squares += residual * residual;
            noise += m_pixels.depthVariance(i) / m_pixels.valid(i);
            ++count;
        }
        if (!needFrames(2, std::array{Metric::fixedPattern}))
            return;
        if (count <= kFitted) {
            none(Metric::fixedPattern, "too few pixels have a depth in two successive frames");
            return;
        }
        const auto n = static_cast<double>(count);
        set(Metric::fixedPattern, std::sqrt(std::max(squares / (n - kFitted) - noise / n, 0.0)));
    }

    void noise()
    {
        if (!needFrames(2, std::array{Metric::noise}))
            return;
        double steps = 0, pairs = 0;
        for (const size_t i : m_all)
            if (m_pixels.pairs(i) > 0) {
                steps += m_pixels.depthVariance(i) * m_pixels.pairs(i);
                pairs += m_pixels.pairs(i);
            }
        if (pairs > 0)
            set(Metric::noise, std::sqrt(steps / pairs));
        else
            none(Metric::noise, "no pixel has a depth in two successive frames");
    }

    void photonTransfer()
    {
        constexpr Metric kOfFit[] = {Metric::readOut, Metric::shot, Metric::jitter, Metric::phase};
        constexpr size_t kLeastFrames = 10, kLeastPixels = 200;
        constexpr double kLeastSpread = 1.3, kMargin = 0.02; // of the amplitudes; the share at both ends left out of it
        if (!needFrames(kLeastFrames, kOfFit))
            return;
        std::vector<size_t> pixels;
        for (const size_t i : m_steady)
            if (m_pixels.pairs(i) >= kLeastFrames / 2 && m_pixels.amplitude(i) > 0)
                pixels.push_back(i);
        std::ranges::sort(pixels, {}, [&](size_t i) { return m_pixels.amplitude(i); });
        const auto margin = static_cast<size_t>(kMargin * static_cast<double>(pixels.size()));
        std::string reason;
        if (pixels.size() < kLeastPixels)
            reason = text("it needs %.0f pixels with a depth in most frames, and there are %.0f", kLeastPixels,
                          static_cast<double>(pixels.size()));
        else if (const double least = m_pixels.amplitude(pixels[margin]),
                 most = m_pixels.amplitude(pixels[pixels.size() - 1 - margin]);
                 most < kLeastSpread * least)
            reason =
                text("the amplitudes, %.0f to %.0f, are too alike to tell the parts of the noise apart", least, most);
        for (const Metric metric : kOfFit)
            none(metric, reason);
        if (!reason.empty())
            return;
        std::vector<Variance> amplitudes, depths;
        for (const size_t i : pixels) {
            const double amplitude = m_pixels.amplitude(i), pairs = m_pixels.pairs(i);
            amplitudes.push_back({amplitude, m_pixels.amplitudeVariance(i), pairs});
            depths.push_back({1 / (amplitude * amplitude), m_pixels.depthVariance(i), pairs});
        }
        if (const auto line = varianceOver(amplitudes)) {
            figure(Metric::readOut) = {std::max(line->intercept - kRounding, 0.0), "", line->interceptError};
            figure(Metric::shot) = {line->slope, "", line->slopeError};
        }
        m_depthNoise = varianceOver(depths);
        if (m_depthNoise) {
            root(Metric::jitter, m_depthNoise->intercept - kRounding, m_depthNoise->interceptError);
            root(Metric::phase, m_depthNoise->slope, m_depthNoise->slopeError);
        }
        groups(amplitudes, depths);
    }

    void root(Metric metric, double square, double error)
    {
        if (square > 0)
            figure(metric) = {std::sqrt(square), "", error / (2 * std::sqrt(square))};
        else
            none(metric, "this part of the noise cannot be told from none");
    }

    // Sorted by amplitude, both in the same order.
    void groups(std::span<const Variance> amplitudes, std::span<const Variance> depths)
    {
        constexpr size_t kGroups = 40;
        for (size_t group = 0; group < kGroups; ++group) {
            const size_t begin = amplitudes.size() * group / kGroups, end = amplitudes.size() * (group + 1) / kGroups;
            NoiseGroup sum{};
            double depthVariance = 0;
            for (size_t at = begin; at < end; ++at) {
                sum.amplitude += amplitudes[at].x;
                sum.amplitudeVariance += amplitudes[at].variance;
                depthVariance += depths[at].variance;
            }
            const auto n = static_cast<double>(end - begin);
            m_result.groups.push_back({sum.amplitude / n, sum.amplitudeVariance / n, std::sqrt(depthVariance / n)});
        }
    }

    // Over the number of the frame, so that a read that came late bends nothing.
    void changes()
    {
        constexpr size_t kLeastFrames = 10;
        constexpr double kLeastSeconds = 10, kLeastDegrees = 0.5, kMinute = 60;
        if (!needFrames(kLeastFrames,
                        std::array{Metric::repeatability, Metric::drift, Metric::driftRate, Metric::temperatureDrift}))
            return;
        std::vector<double> numbers, changes, temperatures;
        for (size_t frame = 0; frame < m_region.change.size(); ++frame)
            if (m_region.change[frame]) {
                numbers.push_back(static_cast<double>(frame));
                changes.push_back(*m_region.change[frame]);
                temperatures.push_back(m_run.m_temperatures[frame]);
            }
        double mean = 0, squares = 0;
        for (const double change : changes)
            mean += change / static_cast<double>(changes.size());
        for (const double change : changes)
            squares += (change - mean) * (change - mean);
        if (changes.size() < 2)
            return;
        set(Metric::repeatability, std::sqrt(squares / static_cast<double>(changes.size() - 1)));
        const std::optional<Line> line = lineThrough(numbers, changes);
        const double drift = line ? line->slope * static_cast<double>(m_run.frames() - 1) : 0;
        set(Metric::drift, drift);
        const double seconds = m_run.m_seconds.back() - m_run.m_seconds.front();
        if (seconds >= kLeastSeconds)
            set(Metric::driftRate, drift / seconds * kMinute);
        else
            none(Metric::driftRate, text("it needs %.0f s, and the run lasts %.1f s", kLeastSeconds, seconds));
        const auto [coldest, warmest] = std::ranges::minmax(temperatures);
        const std::optional<Line> warming =
            warmest - coldest >= kLeastDegrees ? lineThrough(temperatures, changes) : std::nullopt;
        if (warming)
            set(Metric::temperatureDrift, warming->slope);
        else
            none(Metric::temperatureDrift, text("it needs a change of the temperature by %.1f K, and that was %.2f K",
                                                kLeastDegrees, warmest - coldest));
    }

    // In the mean of all frames, with the noise that the fit expects of each pixel, or else that of the region.
    void flying()
    {
        const Figure& noise = figure(Metric::noise);
        if (!noise.value) {
            none(Metric::flyingPixels, noise.reason);
            return;
        }
        std::vector<double> depths(VQD_PIXELS, 0), noises(VQD_PIXELS, std::max(*noise.value, std::sqrt(kRounding)));
        for (size_t i = 0; i < VQD_PIXELS; ++i) {
            if (!m_pixels.isSteady(i))
                continue;
            depths[i] = m_pixels.depth(i);
            const double amplitude = m_pixels.amplitude(i);
            if (m_depthNoise && amplitude > 0)
                noises[i] = std::sqrt(std::max(m_depthNoise->at(1 / (amplitude * amplitude)), kRounding));
        }
        const int count = flyingPixels(m_region.rectangle, depths, noises);
        set(Metric::flyingPixels, kPercent * count / static_cast<double>(m_steady.size()));
    }

    const QualityRun& m_run;
    const PixelStatistics& m_pixels;
    const QualityRun::Region& m_region;
    const std::optional<double> m_distance;
    std::vector<size_t> m_all, m_steady; // pixels of the region; those whose mean counts
    std::optional<Line> m_depthNoise;    // variance over 1 / amplitude^2
    RegionQuality m_result;
};

RegionQuality QualityRun::of(size_t region, std::optional<double> distance) const
{
    return QualityFigures(*this, region, distance).all();
}
