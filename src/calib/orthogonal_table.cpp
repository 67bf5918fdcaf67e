// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The per-pixel orthogonal table: from the camera's radial table, or from a text file if that looks wrong.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <locale.h>
#include <sys/stat.h>

#include "device/base/device_state.h"
#include "device/base/integers.h"
#include "device/base/message.h"

static constexpr int kRadialFactors = 2048;
static constexpr int kFactorsPerPixel = 8; // of radius
static constexpr int kMostRadius = kRadialFactors / kFactorsPerPixel - 1;
static constexpr int kLineBytes = 4096; // a longer line counts as several

// The file covers more than the sensor, whose first row and column lie so many before the principal point.
static constexpr int kRowsBefore = 106;
static constexpr int kColumnsBefore = 146;

// The rows and columns of the file that hold the sensor.
struct Region {
    int64_t firstRow, lastRow;
    int64_t firstColumn, lastColumn;
};

// A radius beyond the table takes its last entry, and so does a principal point that is not a number.
static void expandRadialTable(const double* radial, float cx, float cy)
{
    for (int y = 0; y < VQD_HEIGHT; ++y) {
        for (int x = 0; x < VQD_WIDTH; ++x) {
            const float dx = static_cast<float>(x) - cx;
            const float dy = static_cast<float>(y) - cy;
            const float s = dx * dx + dy * dy;
            const float r = static_cast<float>(sqrt(static_cast<double>(s)));
            const int radius = r < kMostRadius ? Round(r) : kMostRadius;
            m_dOrthogonalData[VQD_WIDTH * y + x] = radial[kFactorsPerPixel * radius];
        }
    }
}

// A value outside int becomes a position far outside any file. NaN lies far above and to the left.
static int64_t truncateCoordinate(float c)
{
    if (FitsInt(c))
        return static_cast<int64_t>(c);
    return c > 0 ? INT64_MAX / 2 : INT64_MIN / 2;
}

static Region regionAround(float cx, float cy)
{
    const int64_t row = truncateCoordinate(cy) - kRowsBefore;
    const int64_t column = truncateCoordinate(cx) - kColumnsBefore;
    return {row, row + VQD_HEIGHT - 1, column, column + VQD_WIDTH - 1};
}

static bool isBlank(const char* token)
{
    return token[strspn(token, " \t\r\n\v\f")] == '\0';
}

// Stores the values of the region's columns from index `stored` on. Returns false if the line ends before them.
static bool readRow(char* line, const Region& region, locale_t c, int& stored)
{
    char* rest = line;
    for (int64_t column = 0; column <= region.lastColumn; ++column) {
        const char* token = strtok_r(rest, "\t", &rest);
        if (token == nullptr || isBlank(token)) // a blank after the last tab is not a value
            return false;
        if (column >= region.firstColumn && stored < VQD_PIXELS)
            m_dOrthogonalData[stored++] = strtod_l(token, nullptr, c);
    }
    return true;
}

// Returns the line to print at the end, or null if the file ends early.
static const char* readRows(FILE* file, const Region& region, locale_t c)
{
    char line[kLineBytes];
    int stored = 0;
    for (int64_t row = 0; row <= region.lastRow; ++row) {
        if (fgets(line, sizeof line, file) == nullptr)
            return nullptr;
        if (row >= region.firstRow && !readRow(line, region, c, stored))
            return "Orthogonal table data read fail.";
    }
    return "Orthogonal table data load complete.";
}

// A pipe opened read-only could block for ever. Opened read-write it does not, and only regular files are read.
static FILE* openTable()
{
    FILE* file = fopen("./Orthogonal_Table.dat", "r+");
    if (file == nullptr)
        return nullptr;
    struct stat status;
    if (fstat(fileno(file), &status) == 0 && S_ISREG(status.st_mode))
        return file;
    fclose(file);
    return nullptr;
}

static void loadFile(const Region& region)
{
    PrintLine("Orthogonal table file load start.");
    FILE* file = openTable();
    if (file == nullptr) {
        PrintLine("Orthogonal table Data open fail.");
        PrintLine("Orthogonal table data load complete.");
        return;
    }
    // The file's numbers have a decimal point, whatever the application's locale.
    const locale_t c = newlocale(LC_ALL_MASK, "C", nullptr);
    const char* said = readRows(file, region, c);
    freelocale(c);
    fclose(file);
    if (said != nullptr)
        PrintLine(said);
}

void LoadOrthogonalTable(int n)
{
    if (!IsDeviceNumber(n))
        return;
    double radial[kRadialFactors];
    if (vqdLoadOrthogonalData(n, radial) != VQD_OK) {
        PrintLine("Orthogonal table load fail.");
        return;
    }
    const float cx = m_fIntrinsicParam[n][2];
    const float cy = m_fIntrinsicParam[n][3];
    expandRadialTable(radial, cx, cy);
    // The corner factor cannot exceed 1: axial depth is never longer than the ray.
    if (m_dOrthogonalData[0] >= 0.0 && m_dOrthogonalData[0] <= 1.0)
        PrintLine("Orthogonal table data load complete.");
    else
        loadFile(regionAround(cx, cy));
}
