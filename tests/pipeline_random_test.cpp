// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The depth pipeline against a plain model of it, bit for bit, over random frames, maps, tables and switches.
#include <algorithm>
#include <climits>
#include <cmath>
#include <limits>
#include <memory>

#include "support/raw_frame_test.h"

namespace
{

constexpr float kInfinity = std::numeric_limits<float>::infinity();

// What a correct camera library makes of a raw frame under the exported switches, maps and tables.
struct Model {
    Plane amplitude{}, depth{};
    float lastAmplitude = fChgAxis_Amp, lastDepth = fChgAxis_Dep1;

    Model(const Plane& rawAmplitude, const Plane& rawDepth, const std::string& product, int minimum, int maximum)
    {
        for (int y = 0; y < 240; ++y)
            for (int x = 0; x < 320; ++x)
                resample(rawAmplitude, rawDepth, 320 * y + x);
        if (product.find("VQD-HT120") == std::string::npos && product.find("VQD-HT950X") == std::string::npos)
            return;
        for (int y = 0; y < 240; ++y)
            for (int x = 0; x < 320; ++x)
                correct(x, y, minimum, maximum);
        if (m_bRemoveEdge == 1)
            removeEdges();
    }

private:
    static uint16_t stored(double value) // every float is a double
    {
        if (!(std::fabs(value) < 2147483648.0))
            return 0;
        return static_cast<uint16_t>(static_cast<int64_t>(value) & 0xFFFF);
    }

    static int sample(const Plane& plane, int x, int y)
    {
        return plane.at(static_cast<size_t>(320 * std::min(y, 239) + std::min(x, 319)));
    }

    static float bilinear(const int (&p)[4], float fx, float fy)
    {
        const float left = 1.0f - fx, top = 1.0f - fy;
        const float p0 = static_cast<float>(p[0]), p1 = static_cast<float>(p[1]);
        const float p2 = static_cast<float>(p[2]), p3 = static_cast<float>(p[3]);
        const float first = p0 * left + p1 * fx;
        const float second = p2 * left + p3 * fx;
        return top * first + fy * second;
    }

    void resample(const Plane& a, const Plane& d, int i)
    {
        const auto pixel = static_cast<size_t>(i);
        const int mode = m_nUndistortionMode;
        amplitude[pixel] = depth[pixel] = 0;
        if (mode < 1 || mode > 3) {
            amplitude[pixel] = a[pixel];
            depth[pixel] = d[pixel];
            return;
        }
        const float x = mode == 3 ? fDist_x2[i] + 0.5f : m_fXp2[i];
        const float y = mode == 3 ? fDist_y2[i] + 0.5f : m_fYp2[i];
        const bool onSensor = x > -1 && x < 320 && y > -1 && y < 240;
        if (mode == 3 && onSensor) {
            amplitude[pixel] = static_cast<uint16_t>(sample(a, static_cast<int>(x), static_cast<int>(y)));
            depth[pixel] = static_cast<uint16_t>(sample(d, static_cast<int>(x), static_cast<int>(y)));
        }
        if (mode == 3)
            return;
        lastAmplitude = lastDepth = 0;
        if (!onSensor)
            return;
        const int x0 = static_cast<int>(x), x1 = static_cast<int>(x + 1.0f);
        const int y0 = static_cast<int>(y), y1 = static_cast<int>(y + 1.0f);
        const int fromA[] = {sample(a, x0, y0), sample(a, x1, y0), sample(a, x0, y1), sample(a, x1, y1)};
        const int fromD[] = {sample(d, x0, y0), sample(d, x1, y0), sample(d, x0, y1), sample(d, x1, y1)};
        lastAmplitude = bilinear(fromA, fDist_x2[i], fDist_y2[i]);
        if (mode == 2 || spread(fromD) <= m_nDepthGab)
            lastDepth = bilinear(fromD, fDist_x2[i], fDist_y2[i]);
        amplitude[pixel] = stored(double{lastAmplitude});
        depth[pixel] = stored(double{lastDepth});
    }

    static int spread(const int (&p)[4])
    {
        int sorted[] = {p[0], p[1], p[2], p[3]};
        std::sort(std::begin(sorted), std::end(sorted));
        return sorted[3] - sorted[0];
    }

    void correct(int x, int y, int minimum, int maximum)
    {
        uint16_t& d = depth[static_cast<size_t>(320 * y + x)];
        if (d == 0)
            return;
        const int offset = m_nEEPROMFPPNBuf[80 * (y / 4) + x / 4];
        const double product = d * m_dOrthogonalData[320 * y + x];
        if (m_bFPPN == 1 && m_bOrthogonal == 1)
            d = stored(product + offset);
        else if (m_bFPPN == 1)
            d = static_cast<uint16_t>((int64_t{d} + offset) & 0xFFFF);
        else if (m_bOrthogonal == 1)
            d = stored(product);
        if (d < minimum || d > maximum)
            d = 0;
    }

    void removeEdges()
    {
        const Plane before = depth;
        for (int y = 0; y < 239; ++y)
            for (int x = 0; x < 319; ++x) {
                const int square[] = {sample(before, x, y), sample(before, x + 1, y), sample(before, x, y + 1),
                                      sample(before, x + 1, y + 1)};
                const auto pixel = static_cast<size_t>(320 * y + x);
                if (amplitude[pixel] >= m_nEdgeThres && square[0] != 0 && spread(square) > m_nEdgeDepth)
                    depth[pixel] = 0;
            }
    }
};

using PipelineRandom = RawFrameTest;

struct Random {
    uint64_t state;
    uint32_t operator()()
    {
        state = state * 6364136223846793005u + 1442695040888963407u;
        return static_cast<uint32_t>(state >> 33);
    }
    int below(int n) { return static_cast<int>((*this)() % static_cast<uint32_t>(n)); }
    float fraction() { return static_cast<float>(below(1 << 24)) / (1 << 24); }
    template <typename T, size_t N> T of(const T (&list)[N]) { return list[below(int{N})]; }
};

const float kPositions[] = {NAN,        kInfinity,   -kInfinity, -1.0f,  -0.99999994f,  -0.5f,
                            -0.0f,      0.99999994f, 1e30f,      -1e30f, 239.0f,        239.5f,
                            239.99998f, 240.0f,      319.0f,     319.5f, 319.9999f,     320.0f,
                            127.99999f, 255.99998f,  63.999996f, 2.0f,   2147483648.0f, -2e9f};
const float kWeights[] = {NAN, kInfinity, -kInfinity, 0.0f, 1.0f, -1.0f, 2.5f, 1e5f, -1e5f, 3e38f};
const double kFactors[] = {NAN, HUGE_VAL, -HUGE_VAL, 0.0, -1.0, 1e300, -1e300, 1e5, -1e5, 32767.99, 4294967296.0, 0.5};
const int kOffsets[] = {INT_MIN, INT_MAX, -150, 65536, -65536, 0, 40000, -40000};
const int kRanges[][2] = {{0, 65535},  {0, 15000}, {500, 3000},       {3000, 500},
                          {-5, 70000}, {1, 65534}, {INT_MIN, INT_MAX}};

void fillPlanes(Random& random, Plane& amplitude, Plane& depth)
{
    const int noise = random.of({1, 120, 400, 65536});
    const int brightest = random.of({40, 300, 65536});
    const int base = random.below(20000);
    const bool holes = random.below(2);
    for (size_t i = 0; i < VQD_PIXELS; ++i) {
        amplitude[i] = static_cast<uint16_t>(random.below(brightest));
        depth[i] = static_cast<uint16_t>(base + random.below(noise));
        if (holes && random.below(8) == 0)
            depth[i] = 0;
    }
}

void fillMaps(Random& random)
{
    const bool hostile = random.below(2), hostileWeights = random.below(3) == 0;
    const float wander = random.of({0.0f, 2.0f, 400.0f});
    for (int i = 0; i < VQD_PIXELS; ++i) {
        m_fXp2[i] = static_cast<float>(i % 320) + wander * (random.fraction() - 0.5f);
        m_fYp2[i] = static_cast<float>(i / 320) + wander * (random.fraction() - 0.5f);
        if (hostile && random.below(4) == 0)
            (random.below(2) ? m_fXp2 : m_fYp2)[i] = random.of(kPositions);
        if (m_nUndistortionMode == 3) {
            fDist_x2[i] = m_fXp2[i];
            fDist_y2[i] = m_fYp2[i];
            continue;
        }
        fDist_x2[i] = random.fraction();
        fDist_y2[i] = random.fraction();
        if (hostileWeights && random.below(8) == 0)
            (random.below(2) ? fDist_x2 : fDist_y2)[i] = random.of(kWeights);
    }
}

void fillTables(Random& random)
{
    const bool hostile = random.below(2);
    for (double& factor : m_dOrthogonalData)
        factor = hostile && random.below(4) == 0 ? random.of(kFactors) : 0.7 + 0.6 * double{random.fraction()};
    for (int& offset : m_nEEPROMFPPNBuf)
        offset = hostile && random.below(4) == 0 ? random.of(kOffsets) : random.below(1000) - 500;
}

bool sameFloat(float a, float b)
{
    return a == b || (std::isnan(a) && std::isnan(b));
}

TEST_F(PipelineRandom, AgreesWithThePlainModel)
{
    for (uint64_t seed = 1; seed <= 200; ++seed) {
        Random random{seed * 0x9E3779B97F4A7C15u};
        const char* name = random.of({"VQD-HT120", "VQD-HT120", "my VQD-HT950X v2", "VQD-HT110", "HT120 VQD-RS110"});
        m_nUndistortionMode = random.of({0, 1, 1, 1, 2, 2, 3, 3, 4, -1});
        m_bFPPN = random.of({0, 1, 1, 2});
        m_bOrthogonal = random.of({0, 1, 1, -1});
        m_bRemoveEdge = random.of({0, 1, 1, 2});
        m_nDepthGab = random.of({uint16_t{0}, uint16_t{100}, uint16_t{300}, uint16_t{40000}, uint16_t{65535}});
        m_nEdgeThres = random.of({uint8_t{32}, uint8_t{32}, uint8_t{0}, uint8_t{255}});
        m_nEdgeDepth = random.of({uint8_t{100}, uint8_t{100}, uint8_t{0}, uint8_t{255}});
        const auto& [minimum, maximum] = kRanges[random.below(int{std::size(kRanges)})];
        fillPlanes(random, rawAmplitude, rawDepth);
        fillMaps(random);
        fillTables(random);
        fChgAxis_Amp = fChgAxis_Dep1 = 77;
        const auto expected = std::make_unique<Model>(rawAmplitude, rawDepth, name, minimum, maximum);

        product(name);
        range(minimum, maximum);
        read();
        const auto where = std::ranges::mismatch(depth, expected->depth).in1 - depth.begin();
        ASSERT_TRUE(depth == expected->depth) << "seed " << seed << ", mode " << m_nUndistortionMode << ", pixel "
                                              << where << ": " << depth[where] << ", not " << expected->depth[where];
        ASSERT_TRUE(amplitude == expected->amplitude) << "seed " << seed << ", mode " << m_nUndistortionMode;
        ASSERT_TRUE(sameFloat(fChgAxis_Amp, expected->lastAmplitude)) << seed;
        ASSERT_TRUE(sameFloat(fChgAxis_Dep1, expected->lastDepth)) << seed;
        ASSERT_EQ(memcmp(buffers + 154112, rawDepth.data(), sizeof rawDepth), 0); // the raw frame stays
    }
}

} // namespace
