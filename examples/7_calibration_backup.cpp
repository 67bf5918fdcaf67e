// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Calibration backup: saves the parameter block, which holds the lens, and the orthogonal table to a file, and restores
// them to the same camera. libusb on Linux cannot read the larger FPPN and wiggling tables; "vqd table backup --direct"
// can.
#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>

#include <VQD_API.h>

struct Backup {
    std::array<unsigned char, VQD_EEPROM_BYTES> parameters{};
    std::array<unsigned char, 4096> orthogonal{}; // 2048 factors in steps of 0.0001, high byte first

    // Bytes 57 to 63 hold the serial number.
    std::string serial() const { return {parameters.begin() + 57, parameters.begin() + 64}; }
    bool operator==(const Backup& other) const
    {
        return parameters == other.parameters && orthogonal == other.orthogonal;
    }
};

static bool fromCamera(int n, Backup& backup)
{
    ParamImage image;
    static double factors[2048];
    if (vqdEEPROM_ParameterData_Load(n, image) != VQD_OK || vqdLoadOrthogonalData(n, factors) != VQD_OK)
        return false;
    std::memcpy(backup.parameters.data(), image, backup.parameters.size());
    for (size_t i = 0; i < 2048; ++i) {
        const long value = std::lround(factors[i] * 10000);
        backup.orthogonal[2 * i] = static_cast<unsigned char>(value >> 8);
        backup.orthogonal[2 * i + 1] = static_cast<unsigned char>(value & 0xFF);
    }
    // When the parameters could not be read, factory settings stand in for them, which have no serial number.
    return backup.serial() != std::string(7, '\0');
}

// A save returns VQD_OK even if the camera refuses it, so only reading back shows whether it worked.
static bool intoCamera(int n, const Backup& backup)
{
    Backup stored;
    return fromCamera(n, stored) && stored.serial() == backup.serial() &&
           vqdEEPROM_ParameterData_Save(n, backup.parameters.data()) == VQD_OK &&
           vqdSaveOrthogonalData(n, backup.orthogonal.data()) == VQD_OK && fromCamera(n, stored) && stored == backup;
}

static bool run(bool save, const char* path)
{
    Backup backup;
    if (save) {
        if (!fromCamera(0, backup))
            return false; // before the file is opened, because that would empty an older backup
        std::ofstream file(path, std::ios::binary);
        return static_cast<bool>(file.write(reinterpret_cast<const char*>(&backup), sizeof backup).flush());
    }
    std::ifstream file(path, std::ios::binary);
    return file.read(reinterpret_cast<char*>(&backup), sizeof backup) && intoCamera(0, backup);
}

int main(int argc, char** argv)
{
    const bool save = argc == 3 && std::strcmp(argv[1], "save") == 0;
    if (!save && !(argc == 3 && std::strcmp(argv[1], "restore") == 0)) {
        std::fprintf(stderr, "Usage: %s save|restore FILE\n", argv[0]);
        return 2;
    }
    DevInfo cameras[VQD_MAX_DEVICES];
    int count = 0;
    const bool done = vqdGetDeviceList(cameras, &count) == VQD_OK && vqdDeviceOpen(0) == VQD_OK && run(save, argv[2]);
    for (int n = 0; n < VQD_MAX_DEVICES; ++n)
        vqdDeviceClose(n);
    std::printf("%s %s\n", save ? "saving" : "restoring", done ? "done" : "failed");
    return done ? 0 : 1;
}
