// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The depth pipeline of the shipped library against its reference kernels, bit for bit, over random frames, maps,
// tables and switches.
#include <algorithm>
#include <climits>
#include <memory>

#include "frame/depth_correct.h"
#include "frame/resample.h"
#include "support/raw_frame_test.h"

namespace
{

// What the reference kernels, one after the other, make of a raw frame under the exported switches, maps and tables.
struct Model {
    Plane amplitude{}, depth{};
    LastPixel last{fChgAxis_Amp, fChgAxis_Dep1};

    Model(const Plane& rawAmplitude, const Plane& rawDepth, const std::string& product, int minimum, int maximum)
        : amplitude(rawAmplitude), depth(rawDepth)
    {
        const Planes raw{rawAmplitude.data(), rawDepth.data()};
        const Images out{amplitude.data(), depth.data()};
        const int mode = m_nUndistortionMode;
        if (mode == 1 || mode == 2)
            last = scalar::ResampleBilinear(raw, {m_fXp2, m_fYp2, fDist_x2, fDist_y2},
                                            mode == 1 ? m_nDepthGab : INT_MAX, out);
        else if (mode == 3)
            scalar::ResampleNearest(raw, fDist_x2, fDist_y2, out);
        if (product.find("VQD-HT120") == std::string::npos && product.find("VQD-HT950X") == std::string::npos)
            return;
        scalar::CorrectDepth(depth.data(), {m_bFPPN == 1 ? m_nEEPROMFPPNBuf : nullptr,
                                            m_bOrthogonal == 1 ? m_dOrthogonalData : nullptr, minimum, maximum});
        if (m_bRemoveEdge == 1)
            scalar::RemoveEdges(amplitude.data(), depth.data(), m_nEdgeThres, m_nEdgeDepth);
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

// Hostile maps, weights and tables are simd_test's business: this one is about the stages and their switches.
void fillMaps(Random& random)
{
    const float wander = random.of({0.0f, 2.0f, 400.0f});
    for (int i = 0; i < VQD_PIXELS; ++i) {
        m_fXp2[i] = static_cast<float>(i % 320) + wander * (random.fraction() - 0.5f);
        m_fYp2[i] = static_cast<float>(i / 320) + wander * (random.fraction() - 0.5f);
        fDist_x2[i] = m_nUndistortionMode == 3 ? m_fXp2[i] : random.fraction();
        fDist_y2[i] = m_nUndistortionMode == 3 ? m_fYp2[i] : random.fraction();
    }
}

void fillTables(Random& random)
{
    for (double& factor : m_dOrthogonalData)
        factor = 0.7 + 0.6 * double{random.fraction()};
    for (int& offset : m_nEEPROMFPPNBuf)
        offset = random.below(1000) - 500;
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
        ASSERT_EQ(fChgAxis_Amp, expected->last.amplitude) << seed;
        ASSERT_EQ(fChgAxis_Dep1, expected->last.depth) << seed;
        ASSERT_EQ(memcmp(buffers + 154112, rawDepth.data(), sizeof rawDepth), 0); // the raw frame stays
    }
}

} // namespace
