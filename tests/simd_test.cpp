// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Compares every vector kernel with its scalar reference, bit for bit, on each target that this machine supports, over
// random and hostile inputs. Every buffer ends where its memory ends, so that a read beyond it crashes.
#include <sys/mman.h>
#include <unistd.h>

#include <bit>
#include <climits>
#include <cmath>
#include <cstring>
#include <random>
#include <span>

#include <gtest/gtest.h>
#include <hwy/highway.h>

#include "frame/depth_correct.h"
#include "frame/filters.h"
#include "frame/resample.h"
#include "geometry/coordinates.h"
#include "geometry/undistortion.h"

namespace
{

// `count` elements in front of a page that must not be touched.
template <typename T> class Guarded
{
public:
    explicit Guarded(size_t count) : m_count(count)
    {
        const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
        const size_t used = (count * sizeof(T) + page - 1) / page * page;
        m_size = used + page;
        m_memory =
            static_cast<char*>(mmap(nullptr, m_size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        EXPECT_EQ(mprotect(m_memory + used, page, PROT_NONE), 0);
        m_first = reinterpret_cast<T*>(m_memory + used - count * sizeof(T));
    }
    ~Guarded() { munmap(m_memory, m_size); }
    Guarded(const Guarded&) = delete;
    Guarded& operator=(const Guarded&) = delete;

    T* data() { return m_first; }
    std::span<T> all() { return {m_first, m_count}; }

    template <typename Make> void fill(Make make)
    {
        for (T& element : all())
            element = static_cast<T>(make());
    }
    void copy(Guarded& other) { memcpy(m_first, other.m_first, m_count * sizeof(T)); }
    bool same(Guarded& other) const { return memcmp(m_first, other.m_first, m_count * sizeof(T)) == 0; }

private:
    size_t m_count, m_size = 0;
    char* m_memory = nullptr;
    T* m_first = nullptr;
};

const float kPositions[] = {NAN,        INFINITY,   -INFINITY,   -1.0f,      -0.99999994f,  -0.5f,
                            -0.0f,      1e-40f,     -1e-40f,     -1e-9f,     239.0f,        239.99998f,
                            240.0f,     319.0f,     319.99997f,  320.0f,     319.5f,        239.5f,
                            319.49997f, 239.49998f, 0.99999994f, 127.99999f, 2147483648.0f, 63.999996f,
                            1e30f,      -3e9f,      255.99998f,  -1e30f,     319.9999f};
const float kPayload = std::bit_cast<float>(0x7FC01234); // a NaN that is not all zeros below
const float kWeights[] = {NAN,    kPayload, INFINITY, -INFINITY, 0.0f, -0.0f, 1.0f,  -1.0f,
                          1e-40f, 2.5f,     77.7f,    -77.7f,    1e5f, -1e5f, 3e38f, -3e38f};

class Simd : public testing::Test
{
protected:
    // Runs `check` on every target, which must give the same result each time.
    template <typename Check> void onEveryTarget(int rounds, Check check)
    {
        for (const int64_t target : hwy::SupportedAndGeneratedTargets()) {
            hwy::SetSupportedTargetsForTest(target);
            hwy::GetChosenTarget().DeInit();
            random.seed(1);
            for (int round = 0; round < rounds && !HasFailure(); ++round) {
                SCOPED_TRACE(testing::Message() << hwy::TargetName(target) << ", round " << round);
                check(round);
            }
        }
        hwy::SetSupportedTargetsForTest(0);
        hwy::GetChosenTarget().DeInit();
    }

    unsigned below(unsigned n) { return static_cast<unsigned>(random() % n); }
    float fraction() { return static_cast<float>(below(1 << 24)) / (1 << 24); }
    template <typename T, size_t N> T of(const T (&list)[N]) { return list[below(N)]; }

    // Positions as a lens makes them that turns, shifts, scales or mirrors, or not at all, or any positions. Those of
    // one row lie around an edge of the sensor. None is hostile, or one in this many.
    void fillMaps(int hostile)
    {
        const bool plain = below(4) == 0; // scaled or mirrored at most
        const float wander = plain ? 0 : of({0.0f, 0.0f, 0.0f, 2.0f, 400.0f});
        const float scale = of({1.0f, 1.0f, 0.97f, 0.8f, 1.1f, 1.9f, 0.5f, 2.4f});
        const float turn = plain ? 0 : of({0.0f, 0.02f, -0.15f, 0.2f, 0.3f});
        const float shiftX = plain ? 0 : of({0.0f, 0.5f, 30.0f, -40.2f});
        const float shiftY = plain ? 0 : of({0.0f, -7.3f, 60.0f});
        const bool mirrored = below(5) == 0;
        const int edgeRow = static_cast<int>(below(VQD_HEIGHT));
        const float edge = of({-1.0f, -0.5f, 239.5f, 240.0f, 240.5f});
        for (int i = 0; i < VQD_PIXELS; ++i) {
            const int ahead = i % VQD_WIDTH;
            const auto column = static_cast<float>(mirrored ? VQD_WIDTH - 1 - ahead : ahead),
                       row = static_cast<float>(i / VQD_WIDTH);
            x.data()[i] = scale * column - turn * row + shiftX + wander * (fraction() - 0.5f);
            y.data()[i] =
                i / VQD_WIDTH == edgeRow ? edge : scale * row + turn * column + shiftY + wander * (fraction() - 0.5f);
            fx.data()[i] = x.data()[i] - truncf(x.data()[i]);
            fy.data()[i] = y.data()[i] - truncf(y.data()[i]);
            if (hostile && below(static_cast<unsigned>(hostile)) == 0) {
                float& position = (below(2) ? x : y).data()[i];
                position = below(2) ? of(kPositions) : nextafterf(position, -1.0f);
            }
            if (hostile && below(64) == 0)
                (below(2) ? fx : fy).data()[i] = of(kWeights);
        }
    }

    void fillPlanes()
    {
        const unsigned range = of({1u, 300u, 65536u});
        amplitude.fill([&] { return below(65536); });
        depth.fill([&] { return below(8) == 0 ? 0 : 65535 - below(range); });
    }

    void expectSameImages()
    {
        EXPECT_TRUE(amplitudeOut.same(amplitudeExpected));
        EXPECT_TRUE(depthOut.same(depthExpected));
    }

    std::mt19937 random;
    Guarded<uint16_t> amplitude{VQD_PIXELS}, depth{VQD_PIXELS};
    Guarded<float> x{VQD_PIXELS}, y{VQD_PIXELS}, fx{VQD_PIXELS}, fy{VQD_PIXELS};
    Guarded<uint16_t> workspace{kWorkspace};
    Guarded<uint16_t> amplitudeOut{VQD_PIXELS}, depthOut{VQD_PIXELS};
    Guarded<uint16_t> amplitudeExpected{VQD_PIXELS}, depthExpected{VQD_PIXELS};
};

TEST_F(Simd, BilinearResampling)
{
    onEveryTarget(60, [&](int) {
        fillPlanes();
        fillMaps(of({0, 16, 1000}));
        workspace.fill([&] { return random(); });
        const uint16_t gate = of({uint16_t{0}, uint16_t{100}, uint16_t{300}, uint16_t{65534}, kNoGate});
        const Planes raw{amplitude.data(), depth.data()};
        const ResampleMaps maps{x.data(), y.data(), fx.data(), fy.data()};
        const auto expected =
            scalar::ResampleBilinear(raw, maps, gate, {amplitudeExpected.data(), depthExpected.data()});
        const auto last =
            simd::ResampleBilinear(raw, maps, gate, {amplitudeOut.data(), depthOut.data()}, workspace.data());
        expectSameImages();
        EXPECT_EQ(memcmp(&last, &expected, sizeof last), 0);
    });
}

TEST_F(Simd, NearestResampling)
{
    onEveryTarget(12, [&](int) {
        fillPlanes();
        fillMaps(of({0, 16, 1000}));
        const Planes raw{amplitude.data(), depth.data()};
        scalar::ResampleNearest(raw, x.data(), y.data(), {amplitudeExpected.data(), depthExpected.data()});
        simd::ResampleNearest(raw, x.data(), y.data(), {amplitudeOut.data(), depthOut.data()});
        expectSameImages();
    });
}

TEST_F(Simd, DepthCorrectionAndClip)
{
    const double hostileFactors[] = {NAN,          INFINITY,     -INFINITY, 0.0, -1.0,     1e300,  5e-324, 32e3, -32e3,
                                     4294967296.0, 32769.000008, -32769.25, 0.5, 32767.99, -1e300, 1e5,    -1e5};
    const int hostileOffsets[] = {INT_MIN, INT_MAX, -150, 65536, -65536, 40000, -40000};
    const int limits[] = {INT_MIN, -1, 0, 1, 500, 3000, 65534, 65535, 65536, INT_MAX};
    Guarded<double> factors{VQD_PIXELS};
    Guarded<int> offsets{VQD_PIXELS / 16};
    onEveryTarget(24, [&](int round) {
        const bool hostile = round & 1, clips = !(round & 8);
        factors.fill([&] { return hostile && below(4) == 0 ? of(hostileFactors) : 0.7 + 0.6 * double{fraction()}; });
        offsets.fill(
            [&] { return hostile && below(4) == 0 ? of(hostileOffsets) : static_cast<int>(below(999)) - 500; });
        fillPlanes();
        depthOut.copy(depth);
        depthExpected.copy(depth);
        const DepthCorrection correction{.offsets = round & 2 ? offsets.data() : nullptr,
                                         .factors = round & 4 ? factors.data() : nullptr,
                                         .minDepth = clips ? of(limits) : 0, // limits leave few pixels to compare
                                         .maxDepth = clips ? of(limits) : 65535};
        scalar::CorrectDepth(depthExpected.data(), correction);
        simd::CorrectDepth(depthOut.data(), correction);
        EXPECT_TRUE(depthOut.same(depthExpected));
    });
}

TEST_F(Simd, EdgeRemoval)
{
    onEveryTarget(12, [&](int) {
        fillPlanes();
        depthOut.copy(depth);
        depthExpected.copy(depth);
        const uint16_t least = of({uint16_t{0}, uint16_t{32}, uint16_t{40000}, uint16_t{65535}});
        const uint16_t spread = of({uint16_t{0}, uint16_t{100}, uint16_t{280}, uint16_t{255}});
        scalar::RemoveEdges(amplitude.data(), depthExpected.data(), least, spread);
        simd::RemoveEdges(amplitude.data(), depthOut.data(), least, spread);
        EXPECT_TRUE(depthOut.same(depthExpected));
    });
}

TEST_F(Simd, MapBuild)
{
    const float hostile[] = {0.0f, -0.0f, 1e-40f, 1e30f, -3e38f, INFINITY, -INFINITY};
    Guarded<float> expected[4]{Guarded<float>{VQD_PIXELS}, Guarded<float>{VQD_PIXELS}, Guarded<float>{VQD_PIXELS},
                               Guarded<float>{VQD_PIXELS}};
    onEveryTarget(40, [&](int round) {
        const auto any = [&](float usual) {
            return round % 4 == 3 && below(3) == 0 ? of(hostile) : usual * (0.9f + fraction() / 4);
        };
        const Lens lens{{any(204), any(204), any(160), any(120)},
                        {any(-0.346f), any(0.12f), any(-0.01f), any(1e-3f), any(-1e-3f), 0}};
        const bool fractions = round % 2;
        const auto last = scalar::FillUndistortionMaps(
            lens, fractions, {expected[0].data(), expected[1].data(), expected[2].data(), expected[3].data()});
        const auto got = simd::FillUndistortionMaps(lens, fractions, {x.data(), y.data(), fx.data(), fy.data()});
        EXPECT_TRUE(x.same(expected[0]) && y.same(expected[1]) && fx.same(expected[2]) && fy.same(expected[3]));
        EXPECT_EQ(memcmp(&got, &last, sizeof last), 0);
    });
}

// Buffers of any size and alignment.
TEST_F(Simd, FiltersAndPoints)
{
    const float scales[] = {1.3f, 1.6e-6f, 0.0f, -1.0f, 1e-40f, 300.0f, 257.00001f, 1e38f, INFINITY, NAN};
    const float hostileRays[] = {INFINITY, -INFINITY, 1e-40f, 3e38f, -0.0f};
    onEveryTarget(100, [&](int) {
        const size_t count = below(300);
        Guarded<uint16_t> a{count}, d{count}, out{count}, expected{count};
        Guarded<Point3f> rays{count}, points{count}, expectedPoints{count};
        const unsigned range = of({200u, 65536u});
        a.fill([&] { return below(range); });
        d.fill([&] { return below(8) == 0 ? 0 : below(65536); });
        for (Point3f& ray : rays.all())
            ray = {fraction(), below(4) == 0 ? of(hostileRays) : fraction(), 0.001f};
        const auto threshold = static_cast<uint8_t>(below(4) == 0 ? 0 : below(256));
        const float scale = of(scales);
        const auto minimum = static_cast<uint16_t>(below(65536)), maximum = static_cast<uint16_t>(below(65536));

        out.copy(d), expected.copy(d);
        scalar::AmplitudeCheck(a.data(), expected.data(), count, threshold, scale);
        simd::AmplitudeCheck(a.data(), out.data(), count, threshold, scale);
        EXPECT_TRUE(out.same(expected));
        out.copy(d), expected.copy(d);
        scalar::ScatteringCheck(a.data(), expected.data(), count, threshold, scale);
        simd::ScatteringCheck(a.data(), out.data(), count, threshold, scale);
        EXPECT_TRUE(out.same(expected));
        out.copy(d), expected.copy(d);
        scalar::MinMaxCheck(expected.data(), count, minimum, maximum);
        simd::MinMaxCheck(out.data(), count, minimum, maximum);
        EXPECT_TRUE(out.same(expected));
        scalar::DepthToPoints(d.data(), rays.data(), expectedPoints.data(), count);
        simd::DepthToPoints(d.data(), rays.data(), points.data(), count);
        EXPECT_TRUE(points.same(expectedPoints));
    });
}

} // namespace
