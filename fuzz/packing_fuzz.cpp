// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Packed planes from anybody: unpacking refuses them or fills the planes, and what was packed comes back as it was. A
// content that nobody packed is wrapped as Zstandard would, so that inputs reach what lies behind it.
#include "host/failure.h"
#include "worker/packing.h"

#include "input.h"

namespace
{

constexpr size_t kMostPixels = 2000;

using Plane = std::vector<uint16_t>;

// False when they were refused.
bool unpacks(Packing& packing, std::span<const uint8_t> packed, Plane& one, Plane& other)
{
    try {
        packing.unpack(packed, {one, other});
        return true;
    } catch (const Failure&) {
        return false;
    }
}

// A frame of Zstandard with one raw block, which holds anything.
std::vector<uint8_t> rawFrame(std::span<const uint8_t> content)
{
    const auto size = static_cast<uint32_t>(content.size());
    const uint32_t block = size << 3 | 1; // the last one, raw
    std::vector<uint8_t> frame = {0x28, 0xB5, 0x2F, 0xFD, 0xA0};
    for (int shift = 0; shift < 32; shift += 8)
        frame.push_back(static_cast<uint8_t>(size >> shift));
    for (int shift = 0; shift < 24; shift += 8)
        frame.push_back(static_cast<uint8_t>(block >> shift));
    frame.insert(frame.end(), content.begin(), content.end());
    return frame;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Input input(data, size);
    const int what = input.below(3);
    Plane one(input.take<uint16_t>() % kMostPixels), other(input.take<uint16_t>() % kMostPixels);
    Packing packing;
    if (what == 0) {
        unpacks(packing, input.takeSome(input.left()), one, other);
        return 0;
    }
    if (what == 1) {
        std::vector<uint8_t> content(2 * (one.size() + other.size()));
        input.fill<uint8_t>(content);
        require(unpacks(packing, rawFrame(content), one, other), "any content of the right size is planes");
    } else {
        input.fill<uint16_t>(one);
        input.fill<uint16_t>(other);
    }
    const auto packed = packing.pack({one, other});
    if (packed.empty())
        return 0;
    require(packed.size() < 2 * (one.size() + other.size()), "packed planes are smaller");
    const std::vector<uint8_t> bytes(packed.begin(), packed.end());
    Plane sameOne(one.size()), sameOther(other.size());
    require(unpacks(packing, bytes, sameOne, sameOther), "what was packed is unpacked");
    require(sameOne == one && sameOther == other, "to what it was");
    for (size_t cut = 0; cut < bytes.size(); cut += 1 + bytes.size() / 8)
        require(!unpacks(packing, std::span(bytes).first(cut), sameOne, sameOther), "what was cut is refused");
    return 0;
}
