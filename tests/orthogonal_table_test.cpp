// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The orthogonal table, from the camera or from a file, which may contain anything.
#include <clocale>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>
#include <sys/stat.h>

#include "support/library_test.h"

namespace
{

constexpr char kFile[] = "Orthogonal_Table.dat";
constexpr char kStart[] = "Orthogonal table file load start.\n";
constexpr char kComplete[] = "Orthogonal table data load complete.\n";
constexpr char kOpenFail[] = "Orthogonal table Data open fail.\n";
constexpr char kReadFail[] = "Orthogonal table data read fail.\n";
constexpr double kImplausible = 6.5535; // every factor of the camera's table, so that the library reads the file

std::string cell(int row, int column)
{
    return std::to_string(row * 1000 + column);
}

// A line for each row, in which each value shows its place.
std::string grid(int rows, int columns, const std::function<std::string(int, int)>& value = cell)
{
    std::string text;
    for (int row = 0; row < rows; ++row)
        for (int column = 0; column < columns; ++column)
            text += value(row, column) + (column + 1 < columns ? "\t" : "\n");
    return text;
}

// The same text with one line replaced.
std::string gridWith(int at, const std::string& line)
{
    return grid(at, 334) + line + "\n" + grid(254, 334).substr(grid(at + 1, 334).size());
}

class OrthogonalTable : public LibraryTest
{
protected:
    void SetUp() override
    {
        home = std::filesystem::current_path();
        std::string name = std::filesystem::temp_directory_path() / "table-XXXXXX";
        ASSERT_NE(mkdtemp(name.data()), nullptr);
        directory = name;
        std::filesystem::current_path(directory);
        camera = &openCamera();
        camera->regions[0x7000].assign(4096, 0xFF);
        centre(160, 120);
    }

    void TearDown() override
    {
        std::filesystem::current_path(home);
        std::filesystem::remove_all(directory);
        LibraryTest::TearDown();
    }

    static void centre(float cx, float cy)
    {
        m_fIntrinsicParam[0][2] = cx;
        m_fIntrinsicParam[0][3] = cy;
    }

    static void put(const std::string& text) { std::ofstream(kFile, std::ios::binary) << text; }

    std::string load()
    {
        std::fill_n(m_dOrthogonalData, VQD_PIXELS, -1.0);
        return printed([] { LoadOrthogonalTable(0); });
    }

    // Counts the entries that are wrong. Right are `rows` of `columns` values that show their place, the first of them
    // from (row, column), and after these the camera's factor.
    static int wrong(int rows, int columns, int row, int column)
    {
        int wrong = 0;
        for (int i = 0; i < VQD_PIXELS; ++i) {
            const bool stored = i < rows * columns;
            const double expected = stored ? (row + i / columns) * 1000 + column + i % columns : kImplausible;
            wrong += m_dOrthogonalData[i] != expected;
        }
        return wrong;
    }

    sim::Camera* camera = nullptr;
    std::filesystem::path home, directory;
};

TEST_F(OrthogonalTable, TheCamerasFactorsGoByTheRadius)
{
    auto& table = camera->regions[0x7000];
    for (size_t i = 0; i < 256; ++i) { // the factor at radius i encodes i
        table[16 * i] = 0;
        table[16 * i + 1] = static_cast<uint8_t>(i);
    }
    put("no table at all");
    const struct {
        float cx, cy;
    } centres[] = {{160, 120}, {160.7f, 120.2f}, {140.1f, 3.3f}, {180, 6553.5f}, {160, std::nanf("")}, {1e30f, 0}};
    for (const auto& c : centres) {
        centre(c.cx, c.cy);
        EXPECT_EQ(load(), kComplete);
        EXPECT_EQ(usb.conversation(), "BB 4096 at 7000");
        int wrong = 0;
        for (int i = 0; i < VQD_PIXELS; ++i) {
            const float dx = static_cast<float>(i % 320) - c.cx, dy = static_cast<float>(i / 320) - c.cy;
            const float rounded = std::floor(std::sqrt(dx * dx + dy * dy) + 0.5f);
            const double radius = rounded < 255 ? rounded : 255; // the last factor holds for all radii beyond
            wrong += m_dOrthogonalData[i] != radius / 10000.0;
        }
        EXPECT_EQ(wrong, 0) << c.cx << " " << c.cy;
    }
}

TEST_F(OrthogonalTable, AFactorAbove1AtTheCornerAsksForTheFile)
{
    const struct {
        int factor;
        std::string lines;
    } cases[] = {
        {0, kComplete}, {9500, kComplete}, {10000, kComplete}, {10001, std::string(kStart) + kOpenFail + kComplete}};
    for (const auto& c : cases) {
        camera->regions[0x7000][16 * 200] = static_cast<uint8_t>(c.factor >> 8); // the corner is at radius 200
        camera->regions[0x7000][16 * 200 + 1] = static_cast<uint8_t>(c.factor & 0xFF);
        EXPECT_EQ(load(), c.lines) << c.factor;
        EXPECT_EQ(m_dOrthogonalData[0], c.factor / 10000.0);
    }
}

TEST_F(OrthogonalTable, AFailedReadChangesNothing)
{
    put(grid(254, 334));
    usb.fail("control", -9);
    EXPECT_EQ(load(), "loadorthogonal error\nOrthogonal table load fail.\n");
    EXPECT_EQ(m_dOrthogonalData[0], -1);
    EXPECT_EQ(printed([] { LoadOrthogonalTable(10); }), "");
}

TEST_F(OrthogonalTable, WhatTheFileHoldsIsStoredFromTheStart)
{
    const std::string full = grid(254, 334), row20 = grid(21, 334).substr(grid(20, 334).size());
    const std::string bare = row20.substr(0, row20.size() - 1), shorter = bare.substr(0, bare.rfind('\t'));
    const float nan = std::nanf("");
    const struct {
        const char* what;
        std::string text;
        float cx, cy;
        const char* lines; // after the start line
        int rows, columns, row, column;
    } cases[] = {
        {"exactly enough", full, 160, 120, kComplete, 240, 320, 14, 14},
        {"no line end", full.substr(0, full.size() - 1), 160, 120, kComplete, 240, 320, 14, 14},
        {"more than enough", grid(300, 400), 160, 120, kComplete, 240, 320, 14, 14},
        {"truncated centre", full, 160.7f, 120.2f, kComplete, 240, 320, 14, 14},
        {"begins before the file", grid(234, 314), 140.9f, 100.9f, kComplete, 234, 314, 0, 0},
        {"centre below zero", grid(254, 334), -20, -20, kComplete, 114, 154, 0, 0},
        {"200 lines", grid(200, 334), 160, 120, "", 186, 320, 14, 14},
        {"ends before the region", grid(9, 334), 160, 120, "", 0, 320, 14, 14},
        {"empty", "", 160, 120, "", 0, 320, 14, 14},
        {"tab at the end", gridWith(20, bare + "\t"), 160, 120, kComplete, 240, 320, 14, 14},
        {"returns", gridWith(20, bare + "\r"), 160, 120, kComplete, 240, 320, 14, 14},
        {"several tabs", gridWith(20, "\t\t" + bare), 160, 120, kComplete, 240, 320, 14, 14},
        {"anything before the region", gridWith(3, "x"), 160, 120, kComplete, 240, 320, 14, 14},
        {"zero bytes before it", gridWith(3, std::string(50, '\0')), 160, 120, kComplete, 240, 320, 14, 14},
        {"a long line counts twice", grid(2, 334) + std::string(5000, '7') + "\n" + full.substr(grid(4, 334).size()),
         160, 120, kComplete, 240, 320, 14, 14},
        {"4094 characters count once", gridWith(3, std::string(4094, '7')), 160, 120, kComplete, 240, 320, 14, 14},
        {"centre above the file", full, 160, -134, kComplete, 0, 320, 0, 0},
        {"centre left of the file", full, -174, 120, kComplete, 0, 320, 0, 0},
        {"centre far above", full, 160, -1e30f, kComplete, 0, 320, 0, 0},
        {"centre far below", full, 160, 6553.5f, "", 0, 320, 0, 0},
        {"centre far right", full, 6553.5f, 120, kReadFail, 0, 320, 0, 0},
        {"centre beyond any below", full, 160, 1e30f, "", 0, 320, 0, 0},
        {"centre beyond any to the right", full, 1e30f, 120, kReadFail, 0, 320, 0, 0},
        {"not a number", full, nan, nan, kComplete, 0, 320, 0, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        centre(c.cx, c.cy);
        put(c.text);
        EXPECT_EQ(load(), std::string(kStart) + c.lines);
        EXPECT_EQ(wrong(c.rows, c.columns, c.row, c.column), 0);
    }

    // A row that is too short ends the load, but its own values and those before it stay.
    centre(160, 120);
    for (const std::string& line :
         {shorter, shorter + "\t", shorter + "\t ", shorter + '\0' + "\t5", shorter + "\t\r"}) {
        put(gridWith(20, line));
        EXPECT_EQ(load(), std::string(kStart) + kReadFail);
        EXPECT_EQ(m_dOrthogonalData[6 * 320 - 1], 19333);
        EXPECT_EQ(m_dOrthogonalData[6 * 320 + 318], 20332);
        EXPECT_EQ(m_dOrthogonalData[6 * 320 + 319], kImplausible);
    }
    for (const char* line : {"", "\t\t\t"}) {
        put(gridWith(14, line));
        EXPECT_EQ(load(), std::string(kStart) + kReadFail);
        EXPECT_EQ(m_dOrthogonalData[0], kImplausible);
    }
    put(gridWith(20, std::string(5000, '7')));
    EXPECT_EQ(load(), std::string(kStart) + kReadFail);
}

TEST_F(OrthogonalTable, NumbersAreReadAsPlainText)
{
    const struct {
        const char* text;
        double value;
    } cases[] = {{"0.95", 0.95}, {" +1.25", 1.25}, {"-2e-3", -0.002}, {"0x10", 16},
                 {"abc", 0},     {"1,5", 1},       {"1.5x", 1.5}};
    const bool comma = std::setlocale(LC_ALL, "de_DE.UTF-8") || std::setlocale(LC_ALL, "fr_FR.UTF-8");
    for (const auto& c : cases) {
        put(grid(254, 334, [&](int, int) { return c.text; }));
        EXPECT_EQ(load(), std::string(kStart) + kComplete);
        EXPECT_EQ(m_dOrthogonalData[VQD_PIXELS - 1], c.value) << c.text << (comma ? " with a comma locale" : "");
    }
}

TEST_F(OrthogonalTable, OnlyAFileIsRead)
{
    std::filesystem::create_directory(kFile);
    EXPECT_EQ(load(), std::string(kStart) + kOpenFail + kComplete);
    std::filesystem::remove(kFile);
    ASSERT_EQ(mkfifo(kFile, 0600), 0); // a read of it would wait for ever
    EXPECT_EQ(load(), std::string(kStart) + kOpenFail + kComplete);
    EXPECT_EQ(wrong(0, 320, 0, 0), 0);
    EXPECT_TRUE(std::filesystem::is_fifo(kFile));
}

} // namespace
