// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
#include "recording/camera_facts.h"

#include <cmath>
#include <fstream>
#include <iterator>

#include "device/base/models.h"

#include "host/calibration_tables.h"
#include "host/profile.h"

namespace
{

constexpr int kFactorsPerPixel = 8, kMostRadius = 255; // of the radial table

const Table& orthogonalTable()
{
    return tableNamed("orthogonal");
}

// What the library makes of the radial table when it loads a camera with this lens.
bool followFromTable(std::span<const double> factors, const TableValues& radial, float cx, float cy)
{
    for (int y = 0; y < VQD_HEIGHT; ++y)
        for (int x = 0; x < VQD_WIDTH; ++x) {
            const float dx = static_cast<float>(x) - cx, dy = static_cast<float>(y) - cy;
            const float s = dx * dx + dy * dy;
            const auto r = static_cast<float>(std::sqrt(static_cast<double>(s)));
            const int radius = r < kMostRadius ? Round(r) : kMostRadius;
            if (factors[static_cast<size_t>(VQD_WIDTH * y + x)] !=
                radial[static_cast<size_t>(kFactorsPerPixel * radius)])
                return false;
        }
    return true;
}

// They may come from a file beside the program, or from the profile, too.
std::vector<double> ownFactors(const ListedCamera& camera, const Bytes& orthogonal)
{
    constexpr float kDefaultCx = 160, kDefaultCy = 120, kLeastCx = 140, kMostCx = 180; // of the library
    float k[4]{};
    vqdGetLensParameter(camera.nIndex, k, nullptr);
    const bool isPlausible = k[2] >= kLeastCx && k[2] <= kMostCx;
    const float cx = isPlausible ? k[2] : kDefaultCx, cy = isPlausible ? k[3] : kDefaultCy;
    if (orthogonal.size() == orthogonalTable().bytes &&
        followFromTable(m_dOrthogonalData, orthogonalTable().code->decode(orthogonal), cx, cy))
        return {};
    return {std::begin(m_dOrthogonalData), std::end(m_dOrthogonalData)};
}

std::string textOf(const std::filesystem::path& path)
{
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator(stream), {}};
}

} // namespace

Bytes readOrthogonalTable(const ListedCamera& camera)
{
    const Table& table = orthogonalTable();
    TableValues values;
    return table.read(camera.nIndex, values) ? table.code->encode(values) : Bytes();
}

CameraFacts factsOf(const ListedCamera& camera, const Bytes& orthogonal)
{
    CameraFacts facts;
    if (camera.known == Known::read)
        facts.serial = camera.szSerialNumber;
    facts.product = camera.szDeviceName;
    facts.vendor = camera.szVendorName;
    facts.usb = usbIds(camera);
    facts.hostCorrected = IsHostCorrectedProduct(camera.szDeviceName);
    if (const EepromRead read = readEeprom(camera.place); read.whole()) // it may have been saved since the listing
        facts.eeprom.assign(read.bytes.begin(), read.bytes.end());
    facts.orthogonal = orthogonal;
    if (facts.hostCorrected) {
        facts.fppn.assign(std::begin(m_nEEPROMFPPNBuf), std::end(m_nEEPROMFPPNBuf));
        facts.factors = ownFactors(camera, orthogonal);
    }
    if (const std::filesystem::path profile = profileInUse(camera); !profile.empty())
        facts.profile = textOf(profile);
    return facts;
}
