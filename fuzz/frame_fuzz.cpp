// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Frame reads of any header and planes, under any maps, tables and switches, with transfers that fail.
#include "fresh_library.h"
#include "input.h"

namespace
{

const char* const kModels[] = {"VQD-HT120", "VQD-HT110", "my VQD-HT950X", "VQD-RS110"};

// Half of the maps stay near the identity, as those of a lens do.
void fillMap(Input& input, std::span<float> map, bool columns)
{
    const bool nearIdentity = input.below(2);
    input.fill(map);
    for (size_t i = 0; nearIdentity && i < map.size(); ++i)
        map[i] += static_cast<float>(columns ? i % VQD_WIDTH : i / VQD_WIDTH);
}

bool fillTables(Input& input)
{
    m_nUndistortionMode = input.below(6) - 1;
    m_bFPPN = input.below(3);
    m_bOrthogonal = input.below(3);
    m_bRemoveEdge = input.below(3);
    m_nDepthGab = input.take<uint16_t>();
    m_nEdgeThres = input.take();
    m_nEdgeDepth = input.take();
    fillMap(input, m_fXp2, true);
    fillMap(input, m_fYp2, false);
    input.fill<float>(fDist_x2);
    input.fill<float>(fDist_y2);
    input.fill<double>(m_dOrthogonalData);
    input.fill<int>(m_nEEPROMFPPNBuf);
    stCamParam[0].nMinDepth = input.take<int32_t>();
    stCamParam[0].nMaxDepth = input.take<int32_t>();
    const char* model = input.of(kModels);
    strcpy(m_stDevInfo[0].szDeviceName, model);
    return strstr(model, "HT120") || strstr(model, "HT950X");
}

// What a transfer brings: a header and planes, perhaps cut short, and any result and length.
int transfer(Input& input, std::span<uint8_t> data, size_t& moved)
{
    static constexpr int kResults[] = {0, 0, 0, 0, 0, -7, -4, -9};
    const auto header = input.takeSome(12);
    std::copy(header.begin(), header.end(), data.begin());
    if (input.below(4) != 0) {
        data[0] = 0x44;
        data[1] = 0x33;
    }
    const size_t arrived = input.below(4) != 0 ? data.size() : input.take<uint32_t>() % data.size();
    input.fill(data.first(arrived).subspan(std::min<size_t>(512, arrived)));
    moved = input.take<uint32_t>();
    return input.of(kResults);
}

void check(const Frame& frame, bool hostCorrected, int minimum, int maximum)
{
    const auto* raw = reinterpret_cast<const uint16_t*>(buffers + 512);
    const bool copied = m_nUndistortionMode < 1 || m_nUndistortionMode > 3;
    if (copied)
        require(memcmp(frame.amplitude.data(), raw, 2 * VQD_PIXELS) == 0, "without maps the amplitude is the raw one");
    if (copied && !hostCorrected)
        require(memcmp(frame.depth.data(), raw + VQD_PIXELS, 2 * VQD_PIXELS) == 0, "the camera's own depth is kept");
    for (const int depth : frame.depth)
        require(!hostCorrected || depth == 0 || (depth >= minimum && depth <= maximum), "the depth lies in its range");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Input input(data, size);
    FreshLibrary library;
    library.plug("VQD-RS110");
    library.list();
    const bool hostCorrected = fillTables(input);
    const int minimum = stCamParam[0].nMinDepth, maximum = stCamParam[0].nMaxDepth;
    library.usb.answerBulkIn = [&](std::span<uint8_t> bytes, size_t& moved) { return transfer(input, bytes, moved); };
    uint64_t frames = 0;
    for (int reads = 0; reads == 0 || (reads < 4 && input.left() > 0); ++reads) {
        Frame frame;
        const int result = requireOneOf(frame.read(0), {1, 0, -2, -3}, "vqdReadFromDevice");
        frames += result == VQD_OK;
        require(m_pFrameInfo[0].nFrameCount == frames, "delivered frames are counted, others not");
        require(result != VQD_OK || (frame.info.nFrameCount == frames && frame.info.nWidth == 320),
                "the caller gets the count");
        const bool startCode = buffers[0] == 0x44 && buffers[1] == 0x33;
        if (result == VQD_OK && startCode)
            check(frame, hostCorrected, minimum, maximum);
        require(startCode || frame.untouched(), "without a start code the images stay");
    }
    return 0;
}
