// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Everything that is computed from pixels and lenses has the same fingerprint on every processor and with every
// compiler. The other tests cannot show that, because they compare with models that the same compiler translates.
#include <cstdint>

#include "support/raw_frame_test.h"

namespace
{

class SameEverywhere : public RawFrameTest
{
protected:
    uint32_t random() { return state = state * 1664525 + 1013904223; }
    float between(float low, float high)
    {
        return low + (high - low) * (static_cast<float>(random() >> 8) / 16777216.0f);
    }

    template <typename Value> void take(const Value* values, size_t count)
    {
        const auto* bytes = reinterpret_cast<const unsigned char*>(values);
        for (size_t i = 0; i < count * sizeof(Value); ++i)
            fingerprint = (fingerprint ^ bytes[i]) * 1099511628211u;
    }

    uint32_t state = 1;
    uint64_t fingerprint = 14695981039346656037u;
};

TEST_F(SameEverywhere, MapsFramesFiltersAndPoints)
{
    product("VQD-HT120");
    range(200, 60000);
    m_bFPPN = m_bOrthogonal = m_bRemoveEdge = 1;
    for (int round = 0; round < 12; ++round) {
        float* lens = m_fIntrinsicParam[0];
        lens[0] = between(150, 260), lens[1] = between(150, 260), lens[2] = between(140, 180),
        lens[3] = between(100, 140);
        for (float& k : m_fDistorParam[0])
            k = between(-0.4f, 0.4f);
        for (int i = 0; i < VQD_PIXELS; ++i) {
            rawAmplitude[static_cast<size_t>(i)] = static_cast<uint16_t>(random() >> 16);
            rawDepth[static_cast<size_t>(i)] = static_cast<uint16_t>(random() >> (round % 2 == 0 ? 16 : 20));
            m_dOrthogonalData[i] = (random() >> 16) / 65536.0;
        }
        for (int& offset : m_nEEPROMFPPNBuf)
            offset = static_cast<int>(random() >> 24) - 128;
        m_nUndistortionMode = 1 + round % 3;
        BuildUndistortionMap(0);
        for (const float* map : {m_fXp2, m_fYp2, fDist_x2, fDist_y2})
            take(map, VQD_PIXELS);
        read();
        vqdAmplitudeCheckFilter(amplitude.data(), depth.data(), 60, 320, 120);
        vqdScatteringCheckFilter(amplitude.data(), depth.data(), 200, 320, 120);
        take(amplitude.data(), VQD_PIXELS);
        take(depth.data(), VQD_PIXELS);
        BuildPointCloudTable({lens[0], lens[1], lens[2], lens[3]});
        std::vector<Point3f> points(VQD_PIXELS);
        vqdDepthFrameToCameraSpace(depth.data(), points.data(), 320, 240);
        take(points.data(), points.size());
        int pixel[] = {round * 20, round * 15};
        vqdGetUndistortPixel(0, &pixel[0], &pixel[1]);
        take(pixel, 2);
    }
    EXPECT_EQ(fingerprint, 16586625120205884165u);
}

} // namespace
