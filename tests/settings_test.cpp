// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Every acquisition setting: what it refuses, which image bytes it edits, what it sends, how long it waits, and what it
// caches.
#include <climits>
#include <cstring>

#include "support/library_test.h"

namespace
{

constexpr unsigned char kUntouched = 0x5A; // no setting writes it

// Fields and flags beside the image, each with a value that no call stores.
struct Field {
    const char* name;
    int (*get)();
};

const Field kFields[] = {
    {"nMaxDistance", [] { return int{stCamParam[0].nMaxDistance}; }},
    {"nModFrequency", [] { return int{stCamParam[0].nModFrequency}; }},
    {"nIntegrationTime", [] { return int{stCamParam[0].nIntegrationTime}; }},
    {"nOffset", [] { return int{stCamParam[0].nOffset}; }},
    {"nThreshold", [] { return int{stCamParam[0].nThreshold}; }},
    {"nMinDepth", [] { return stCamParam[0].nMinDepth; }},
    {"nMaxDepth", [] { return stCamParam[0].nMaxDepth; }},
    {"m_bHorizontal", [] { return m_bHorizontal; }},
    {"m_bVertical", [] { return m_bVertical; }},
    {"m_bRemoveEdge", [] { return m_bRemoveEdge; }},
    {"m_bRemoveMotionBlur", [] { return m_bRemoveMotionBlur; }},
    {"m_bFPPN", [] { return m_bFPPN; }},
    {"m_bOrthogonal", [] { return m_bOrthogonal; }},
    {"m_nUndistortionMode", [] { return m_nUndistortionMode; }},
};

class Settings : public LibraryTest
{
protected:
    void prepare(const char* model, void (*more)() = nullptr)
    {
        strcpy(m_stDevInfo[0].szDeviceName, model);
        memset(stCamParam[0].image, kUntouched, sizeof stCamParam[0].image);
        stCamParam[0].nMaxDistance = 7500;
        stCamParam[0].nModFrequency = 1111;
        stCamParam[0].nIntegrationTime = 1112;
        stCamParam[0].nOffset = 1113;
        stCamParam[0].nThreshold = 1114;
        stCamParam[0].nMinDepth = 0;
        stCamParam[0].nMaxDepth = 15000;
        m_bHorizontal = m_bVertical = 0;
        m_bRemoveEdge = m_bRemoveMotionBlur = m_bFPPN = m_bOrthogonal = m_nUndistortionMode = 7;
        if (more != nullptr)
            more();
        usb.conversation();
        memcpy(m_image, stCamParam[0].image, sizeof m_image);
        for (size_t i = 0; i < std::size(kFields); ++i)
            m_fields[i] = kFields[i].get();
    }

    // Image bytes that differ since prepare(), as "4=81 5=02".
    std::string editedBytes() const
    {
        std::string text;
        char entry[16];
        for (int i = 0; i < VQD_IMAGE_BYTES; ++i)
            if (stCamParam[0].image[i] != m_image[i]) {
                snprintf(entry, sizeof entry, "%s%d=%02X", text.empty() ? "" : " ", i, stCamParam[0].image[i]);
                text += entry;
            }
        return text;
    }

    // Fields that differ since prepare(), as "nOffset=-255".
    std::string changedFields() const
    {
        std::string text;
        for (size_t i = 0; i < std::size(kFields); ++i)
            if (kFields[i].get() != m_fields[i])
                text.append(text.empty() ? "" : " ")
                    .append(kFields[i].name)
                    .append("=")
                    .append(std::to_string(kFields[i].get()));
        return text;
    }

private:
    unsigned char m_image[VQD_IMAGE_BYTES];
    int m_fields[std::size(kFields)];
};

#define CALL(expression) #expression, [] { return static_cast<int>(expression); }

struct Setter {
    const char* text;
    int (*call)();
    const char* edited;
    const char* fields = "";             // after a good send
    const char* fieldsAfterFailure = ""; // after a failed one
    const char* settle = "";             // waits after a good send
    const char* settleAfterFailure = "";
    const char* model = "VQD-HT120";
    void (*before)() = nullptr;
};

const char k100ms[] = ", wait 100000";
const char k100us[] = ", wait 100";

const Setter kSetters[] = {
    // Frequency: three model groups.
    {CALL(vqdSetModuleFrequency(0, 10)), "4=81 5=01", "nMaxDistance=15000 nModFrequency=10", "nMaxDistance=15000",
     k100ms, k100ms, "VQD-RS110"},
    {CALL(vqdSetModuleFrequency(0, 10)), "4=81 5=01", "nMaxDistance=15000 nModFrequency=10", "nMaxDistance=15000",
     k100ms, k100ms, "a VQD-RS120 b"},
    {CALL(vqdSetModuleFrequency(0, 20)), "4=81 5=02", "nModFrequency=20", "", k100ms, k100ms, "VQD-HT110"},
    {CALL(vqdSetModuleFrequency(0, 30)), "4=81 5=03", "nMaxDistance=5000 nModFrequency=30", "nMaxDistance=5000", k100ms,
     k100ms, "VQD-HT120"},
    {CALL(vqdSetModuleFrequency(0, 40)), "4=81", "nModFrequency=40", "", k100ms, k100ms, "VQD-HT950X"},
    {CALL(vqdSetModuleFrequency(0, -1)), "4=81", "nModFrequency=65535", "", k100ms, k100ms, "VQD-WN120"},
    // Numbers.
    {CALL(vqdSetOffset(0, -255)), "24=00 25=FF", "nOffset=-255"},
    {CALL(vqdSetOffset(0, -1)), "24=00 25=01", "nOffset=-1"},
    {CALL(vqdSetOffset(0, 0)), "24=01 25=00", "nOffset=0"},
    {CALL(vqdSetOffset(0, 255)), "24=01 25=FF", "nOffset=255"},
    {CALL(vqdSetScatterThreshold(0, 0x1FE)), "0=FE", "nThreshold=254"},
    {CALL(vqdSetCheckThreshold(0, -1)), "1=FF", "nThreshold=255"},
    {CALL(vqdSetFPSDelay(0, 100)), "33=64"},
    {CALL(vqdSetFPSDelay(0, 356)), "33=64"},
    {CALL(vqdSetFPSDelay(0, -256)), "33=00"},
    // The cached range stays, minimum and maximum are not compared, only 16 bits count.
    {CALL(vqdSetDepthRange(0, 0, 7500)), "20=00 21=00 22=1D 23=4C", "", "", k100us},
    {CALL(vqdSetDepthRange(0, 5000, 3000)), "20=13 21=88 22=0B 23=B8", "", "", k100us},
    {CALL(vqdSetDepthRange(0, 15000, 0)), "20=3A 21=98 22=00 23=00", "", "", k100us},
    {CALL(vqdSetDepthRange(0, 0x10001, -65536 + 258)), "20=00 21=01 22=01 23=02", "", "", k100us},
    // Modes. Only 1 means on.
    {CALL(vqdSetMultiCamMode(0, 1, 1, 0)), "40=01 41=01 42=00"},
    {CALL(vqdSetMultiCamMode(0, 2, 5, 3)), "40=00 41=05 42=03"},
    {CALL(vqdSetMultiCamMode(0, 257, 9, 9)), "40=00 41=09 42=09"},
    {CALL(vqdSetMultiSyncMode(0, 1)), "40=01"},
    {CALL(vqdSetMultiSyncMode(0, 257)), "40=00"},
    {CALL(vqdIlluminationOnOff(0, 1)), "11=01"},
    {CALL(vqdIlluminationOnOff(0, -1)), "11=00"},
    // Flips: the other axis comes from the library-wide flag.
    {CALL(vqdSetFlipHorizontal(0, 1)), "9=E0", "m_bHorizontal=1", "m_bHorizontal=1", k100ms},
    {CALL(vqdSetFlipHorizontal(0, 1)), "9=E1", "m_bHorizontal=1", "m_bHorizontal=1", k100ms, "", "VQD-RS110",
     [] { m_bVertical = 1; }},
    {CALL(vqdSetFlipHorizontal(0, 2)), "9=E2", "m_bHorizontal=0", "m_bHorizontal=0", k100ms, "", "VQD-RS110",
     [] { m_bHorizontal = 1; }},
    {CALL(vqdSetFlipHorizontal(0, 0)), "9=E3", "", "", k100ms, "", "VQD-RS110", [] { m_bVertical = 1; }},
    {CALL(vqdSetFlipVertical(0, 1)), "9=E3", "m_bVertical=1", "m_bVertical=1", k100ms, k100ms},
    {CALL(vqdSetFlipVertical(0, 1)), "9=E1", "m_bVertical=1", "m_bVertical=1", k100ms, k100ms, "VQD-RS110",
     [] { m_bHorizontal = 1; }},
    {CALL(vqdSetFlipVertical(0, -1)), "9=E0", "m_bVertical=0", "m_bVertical=0", k100ms, k100ms, "VQD-RS110",
     [] { m_bHorizontal = m_bVertical = 1; }},
    // Edge removal: the flag is stored as given. Byte 49 takes its other bit from the FPPN flag.
    {CALL(vqdSetRemoveEdge(0, 1)), "45=64 49=01", "m_bRemoveEdge=1", "m_bRemoveEdge=1"},
    {CALL(vqdSetRemoveEdge(0, 0)), "45=FF 49=00", "m_bRemoveEdge=0", "m_bRemoveEdge=0", "", "", "VQD-HT950X"},
    {CALL(vqdSetRemoveEdge(0, 1)), "45=64 49=11", "m_bRemoveEdge=1", "m_bRemoveEdge=1", "", "", "VQD-HT950X",
     [] { m_bFPPN = 1; }},
    {CALL(vqdSetRemoveEdge(0, -1)), "45=FF 49=10", "m_bRemoveEdge=-1", "m_bRemoveEdge=-1", "", "", "VQD-HT120",
     [] { m_bFPPN = 1; }},
    {CALL(vqdSetRemoveEdge(0, 1)), "45=64 49=01", "m_bRemoveEdge=1", "m_bRemoveEdge=1", "", "", "VQD-HT120",
     [] { m_bFPPN = 2; }},
    {CALL(vqdSetRemoveEdge(0, 1)), "43=1F 44=64", "m_bRemoveEdge=1", "m_bRemoveEdge=1", "", "", "VQD-HT110"},
    {CALL(vqdSetRemoveEdge(0, 0)), "43=FF", "m_bRemoveEdge=0", "m_bRemoveEdge=0", "", "", "VQD-RS120"},
    {CALL(vqdSetRemoveEdge(0, 2)), "", "m_bRemoveEdge=2", "m_bRemoveEdge=2", "", "", "VQD-RS120"},
    // Motion blur: switching off keeps the level.
    {CALL(vqdSetRemoveMotionBlur(0, 1, 300)), "3=10 66=2C 67=2C", "m_bRemoveMotionBlur=1", "m_bRemoveMotionBlur=1"},
    {CALL(vqdSetRemoveMotionBlur(0, 0, 300)), "3=00", "m_bRemoveMotionBlur=0", "m_bRemoveMotionBlur=0"},
    {CALL(vqdSetRemoveMotionBlur(0, 2, 9)), "3=00", "m_bRemoveMotionBlur=2", "m_bRemoveMotionBlur=2", "", "",
     "VQD-RS110"},
    // FPPN shares byte 49 with edge removal. The flags are stored as given, and only 1 counts as on.
    {CALL(vqdSetFPPN(0, 1)), "49=10", "m_bFPPN=1", "m_bFPPN=1"},
    {CALL(vqdSetFPPN(0, 1)), "49=11", "m_bFPPN=1", "m_bFPPN=1", "", "", "VQD-HT110", [] { m_bRemoveEdge = 1; }},
    {CALL(vqdSetFPPN(0, 2)), "49=00", "m_bFPPN=2", "m_bFPPN=2", "", "", "VQD-HT110"},
    {CALL(vqdSetFPPN(0, -1)), "49=01", "m_bFPPN=-1", "m_bFPPN=-1", "", "", "VQD-HT120", [] { m_bRemoveEdge = 1; }},
    // Orthogonal shares byte 48 with undistortion where the host corrects; elsewhere byte 2 is its own.
    {CALL(vqdSetOrthogonal(0, 1)), "48=10", "m_bOrthogonal=1", "m_bOrthogonal=1", "", "", "VQD-HT950X"},
    {CALL(vqdSetOrthogonal(0, 1)), "48=13", "m_bOrthogonal=1", "m_bOrthogonal=1", "", "", "VQD-HT120",
     [] { m_nUndistortionMode = 3; }},
    {CALL(vqdSetOrthogonal(0, 2)), "48=01", "m_bOrthogonal=2", "m_bOrthogonal=2", "", "", "VQD-HT950X",
     [] { m_nUndistortionMode = 1; }},
    {CALL(vqdSetOrthogonal(0, 1)), "2=13", "m_bOrthogonal=1", "m_bOrthogonal=1", "", "", "VQD-HT110"},
    {CALL(vqdSetOrthogonal(0, 2)), "2=12", "m_bOrthogonal=2", "m_bOrthogonal=2", "", "", "VQD-HT110"},
    {CALL(vqdSetUndistortion(0, 0)), "48=00", "m_nUndistortionMode=0", "m_nUndistortionMode=0"},
    {CALL(vqdSetUndistortion(0, 1)), "48=01", "m_nUndistortionMode=1", "m_nUndistortionMode=1", "", "", "VQD-HT110"},
    {CALL(vqdSetUndistortion(0, 2)), "48=12", "m_nUndistortionMode=2", "m_nUndistortionMode=2", "", "", "VQD-HT120",
     [] { m_bOrthogonal = 1; }},
    {CALL(vqdSetUndistortion(0, 3)), "48=03", "m_nUndistortionMode=3", "m_nUndistortionMode=3", "", "", "VQD-HT120",
     [] { m_bOrthogonal = 2; }},
    {CALL(vqdSetUndistortion(0, 4)), "48=00", "m_nUndistortionMode=4", "m_nUndistortionMode=4"},
    {CALL(vqdSetUndistortion(0, 257)), "48=00", "m_nUndistortionMode=257", "m_nUndistortionMode=257"},
    {CALL(vqdSetUndistortion(0, -1)), "48=10", "m_nUndistortionMode=-1", "m_nUndistortionMode=-1", "", "", "VQD-HT120",
     [] { m_bOrthogonal = 1; }},
};

TEST_F(Settings, SettersEditSendWaitAndCache)
{
    sim::Camera& camera = openCamera();
    for (const Setter& s : kSetters) {
        SCOPED_TRACE(std::string(s.text) + " on " + s.model);
        prepare(s.model, s.before);
        EXPECT_EQ(printed([&] { EXPECT_EQ(s.call(), 1); }), "");
        EXPECT_EQ(usb.conversation(), kImageSent + s.settle);
        EXPECT_EQ(editedBytes(), s.edited);
        EXPECT_EQ(changedFields(), s.fields);
        EXPECT_EQ(memcmp(camera.registers.data(), stCamParam[0].image, 512), 0);
    }
}

TEST_F(Settings, AFailedSendKeepsTheEditAndNotTheDecodedField)
{
    const struct {
        const char *call, *line, *conversation;
    } failures[] = {
        {"control", "vqdWriteToDevice Contol transfer Error.\n", "B1 64 -7"},
        {"bulk", "vqdWriteToDevice Bulk transfer Error.\n", "B1 64, wait 100000, out 512 -7"},
    };
    sim::Camera& camera = openCamera();
    const sim::Image registers = camera.registers;
    for (const Setter& s : kSetters)
        for (const auto& f : failures) {
            SCOPED_TRACE(std::string(s.text) + " on " + s.model + " without " + f.call);
            prepare(s.model, s.before);
            usb.fail(f.call, -7);
            EXPECT_EQ(printed([&] { EXPECT_EQ(s.call(), 0); }), f.line);
            EXPECT_EQ(usb.conversation(), std::string(f.conversation) + s.settleAfterFailure);
            EXPECT_EQ(editedBytes(), s.edited);
            EXPECT_EQ(changedFields(), s.fieldsAfterFailure);
            EXPECT_EQ(camera.registers, registers);
        }
}

TEST_F(Settings, RefusedValuesChangeNothing)
{
    const char slaves[] = "Error: Multi Cam Slave Cam Count(1~9) Over.\n";
    const char id[] = "Error: Multi Cam SlaveID Number(0~9) Over.\n";
    const struct {
        const char* text;
        int (*call)();
        const char* line;
        const char* model = "VQD-HT110";
        void (*before)() = nullptr;
    } cases[] = {
        {CALL(vqdSetIntegrationTime(0, 5)), ""},
        {CALL(vqdSetModuleFrequency(0, 20)), "", "VQD-RS110"},
        {CALL(vqdSetModuleFrequency(0, 30)), "", "VQD-RS120"},
        {CALL(vqdSetModuleFrequency(0, 20)), "", "VQD-RS110 VQD-HT110"}, // the RS family is checked first
        {CALL(vqdSetModuleFrequency(0, 10)), "", "VQD-HT110"},
        {CALL(vqdSetModuleFrequency(0, 65556)), "", "VQD-HT120"}, // 20 in the low 16 bits
        {CALL(vqdSetOffset(0, 256)), "Offset Range: -255 ~ 255\n"},
        {CALL(vqdSetOffset(0, -256)), "Offset Range: -255 ~ 255\n"},
        {CALL(vqdSetOffset(0, INT_MIN)), "Offset Range: -255 ~ 255\n"},
        {CALL(vqdSetFPSDelay(0, 101)), "FPS Delay Range: 0 ~ 100\n"},
        {CALL(vqdSetFPSDelay(0, -1)), "FPS Delay Range: 0 ~ 100\n"},
        {CALL(vqdSetMultiCamMode(0, 1, 0, 0)), slaves},
        {CALL(vqdSetMultiCamMode(0, 1, 10, 99)), slaves}, // the count is checked before the number
        {CALL(vqdSetMultiCamMode(0, 1, 257, 0)), slaves},
        {CALL(vqdSetMultiCamMode(0, 1, 5, 10)), id},
        {CALL(vqdSetMultiCamMode(0, 1, 5, -1)), id},
        {CALL(vqdSetDepthRange(0, 15001, 100)), "Min Depth Range: 0 ~ 15000\n"},
        {CALL(vqdSetDepthRange(0, -1, 100)), "Min Depth Range: 0 ~ 15000\n"}, // 65535
        {CALL(vqdSetDepthRange(0, 0, 7501)), "Max Depth Range: 0 ~ 7500\n"},
        {CALL(vqdSetDepthRange(0, 0, -1)), "Max Depth Range: 0 ~ 7500\n"},
        {CALL(vqdSetDepthRange(0, 500, 999)), "Max Depth Range: 1000 ~ 7500\n", "VQD-HT110",
         [] { stCamParam[0].nMinDepth = 1000; }},
        {CALL(vqdSetDepthRange(0, 0, 1)), "Max Depth Range: 0 ~ 0\n", "VQD-HT110",
         [] { stCamParam[0].nMaxDistance = 0; }}, // an unknown frequency was loaded
        {CALL(vqdSetDepthRange(0, 0, 1)), "Min Depth Range: 0 ~ -1\n", "VQD-HT110",
         [] { stCamParam[0].nMaxDepth = -1; }},
    };
    openCamera();
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.text) + " on " + c.model);
        prepare(c.model, c.before);
        EXPECT_EQ(printed([&] { EXPECT_EQ(c.call(), 0); }), c.line);
        EXPECT_EQ(usb.conversation(), "");
        EXPECT_EQ(editedBytes(), "");
        EXPECT_EQ(changedFields(), "");
    }
}

TEST_F(Settings, GettersDecodeTheHostCopy)
{
    struct Byte {
        int at;
        unsigned char value;
    };
    const struct {
        const char* text;
        int (*call)();
        std::vector<Byte> image;
        int result;
        const char* fields = "";
        const char* model = "VQD-HT120";
    } cases[] = {
        {CALL(vqdGetIntegrationTime(0)), {{6, 255}}, 25500, "nIntegrationTime=25500"},
        {CALL(vqdGetModuleFrequency(0)), {{5, 0x00}}, 10, "nMaxDistance=15000 nModFrequency=10"},
        {CALL(vqdGetModuleFrequency(0)), {{5, 0x01}}, 10, "nMaxDistance=15000 nModFrequency=10"},
        {CALL(vqdGetModuleFrequency(0)), {{5, 0x02}}, 20, "nModFrequency=20"},
        {CALL(vqdGetModuleFrequency(0)), {{5, 0x03}}, 30, "nMaxDistance=5000 nModFrequency=30"},
        {CALL(vqdGetModuleFrequency(0)), {{5, 0x33}}, 30, "nMaxDistance=5000 nModFrequency=30"},
        {CALL(vqdGetModuleFrequency(0)), {{5, 0x04}}, 40, "nMaxDistance=3750 nModFrequency=40"},
        {CALL(vqdGetModuleFrequency(0)), {{5, 0x44}}, 40, "nMaxDistance=3750 nModFrequency=40"},
        {CALL(vqdGetModuleFrequency(0)), {{5, 0x05}}, 50, "nMaxDistance=3000 nModFrequency=50"},
        {CALL(vqdGetModuleFrequency(0)), {{5, 0x55}}, 50, "nMaxDistance=3000 nModFrequency=50"},
        {CALL(vqdGetModuleFrequency(0)), {{5, 0x06}}, 60, "nMaxDistance=2500 nModFrequency=60"},
        {CALL(vqdGetModuleFrequency(0)), {{5, 0x45}}, 45, "nMaxDistance=15000 nModFrequency=45"},
        {CALL(vqdGetModuleFrequency(0)), {{5, 0x56}}, 56, "nMaxDistance=15000 nModFrequency=56"},
        {CALL(vqdGetModuleFrequency(0)), {{5, 0x07}}, 0},
        {CALL(vqdGetModuleFrequency(0)), {{5, 0xFF}}, 0},
        {CALL(vqdGetOffset(0)), {{24, 1}, {25, 255}}, 255, "nOffset=255"},
        {CALL(vqdGetOffset(0)), {{24, 0}, {25, 255}}, -255, "nOffset=-255"},
        {CALL(vqdGetOffset(0)), {{24, 2}, {25, 3}}, -3, "nOffset=-3"},
        {CALL(vqdGetScatterThreshold(0)), {{0, 200}}, 200},
        {CALL(vqdGetCheckThreshold(0)), {{1, 201}}, 201, "nThreshold=201"},
        {CALL(vqdGetMultiSyncMode(0)), {{40, 0}}, 0},
        {CALL(vqdGetMultiSyncMode(0)), {{40, 1}}, 1},
        {CALL(vqdGetMultiSyncMode(0)), {{40, 2}}, -4},
        {CALL(vqdGetFPSDelay(0)), {{33, 255}}, 255},
        {CALL(vqdGetDepthRange(0, nullptr, nullptr)),
         {{20, 0x01}, {21, 0x02}, {22, 0xFF}, {23, 0xFE}},
         1,
         "nMinDepth=258 nMaxDepth=65534"},
        {CALL(vqdGetFlipHorizontal(0)), {{9, 0xE1}}, 1, "m_bHorizontal=1"},
        {CALL(vqdGetFlipHorizontal(0)), {{9, 0xE2}}, 0},
        {CALL(vqdGetFlipHorizontal(0)), {{9, 0x00}}, 1, "m_bHorizontal=1"},
        {CALL(vqdGetFlipVertical(0)), {{9, 0xE1}}, 1, "m_bVertical=1"},
        {CALL(vqdGetFlipVertical(0)), {{9, 0xFE}}, 0},
        {CALL(vqdGetRemoveEdge(0)), {{49, 0x01}}, 1, "m_bRemoveEdge=1"},
        {CALL(vqdGetRemoveEdge(0)), {{49, 0x11}}, 1, "m_bRemoveEdge=1", "VQD-HT950X"},
        {CALL(vqdGetRemoveEdge(0)), {{49, 0x10}, {43, 0x1F}}, 0, "m_bRemoveEdge=0"},
        {CALL(vqdGetRemoveEdge(0)), {{49, 0x12}}, 7}, // an unknown code gives the flag as it is
        {CALL(vqdGetRemoveEdge(0)), {{43, 0xFF}, {49, 0x01}}, 0, "m_bRemoveEdge=0", "VQD-HT110"},
        {CALL(vqdGetRemoveEdge(0)), {{43, 0xFE}, {49, 0x00}}, 1, "m_bRemoveEdge=1", "VQD-HT110"},
        {CALL(vqdGetRemoveMotionBlur(0, nullptr)), {{3, 0x10}}, 1, "m_bRemoveMotionBlur=1"},
        {CALL(vqdGetRemoveMotionBlur(0, nullptr)), {{3, 0x00}}, 0, "m_bRemoveMotionBlur=0"},
        {CALL(vqdGetRemoveMotionBlur(0, nullptr)), {{3, 0x11}}, 7},
        {CALL(vqdGetFPPN(0)), {{49, 0x01}}, 0, "m_bFPPN=0"},
        {CALL(vqdGetFPPN(0)), {{49, 0x11}}, 1, "m_bFPPN=1", "VQD-HT110"},
        {CALL(vqdGetFPPN(0)), {{49, 0x12}}, 7},
        {CALL(vqdGetFPPN(0)), {{49, 0x31}}, 7},
        {CALL(vqdGetOrthogonal(0)), {{48, 0x03}}, 0, "m_bOrthogonal=0", "VQD-HT950X"},
        {CALL(vqdGetOrthogonal(0)), {{48, 0x13}}, 1, "m_bOrthogonal=1"},
        {CALL(vqdGetOrthogonal(0)), {{48, 0x14}}, 7},
        {CALL(vqdGetOrthogonal(0)), {{48, 0x33}}, 7},
        {CALL(vqdGetOrthogonal(0)), {{2, 19}}, 1, "m_bOrthogonal=1", "VQD-HT110"},
        {CALL(vqdGetOrthogonal(0)), {{2, 20}}, 0, "m_bOrthogonal=0", "VQD-HT110"}, // no code is unknown here
        {CALL(vqdGetUndistortion(0)), {{48, 0x00}}, 0, "m_nUndistortionMode=0"},
        {CALL(vqdGetUndistortion(0)), {{48, 0x13}}, 3, "m_nUndistortionMode=3", "VQD-HT110"},
        {CALL(vqdGetUndistortion(0)), {{48, 0x04}}, 7},
        {CALL(vqdGetUndistortion(0)), {{48, 0x23}}, 7},
        {CALL(vqdGetTemperature(0)), {}, 0},
        {CALL(vqdGetLogincVersion(0, nullptr, nullptr)), {}, 1},
    };
    openCamera();
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.text) + (c.image.empty() ? "" : " of " + std::to_string(c.image[0].value)));
        prepare(c.model);
        for (const Byte& byte : c.image)
            stCamParam[0].image[byte.at] = byte.value;
        const std::string edits = editedBytes();
        EXPECT_EQ(printed([&] { EXPECT_EQ(c.call(), c.result); }), "");
        EXPECT_EQ(usb.conversation(), "");
        EXPECT_EQ(editedBytes(), edits);
        EXPECT_EQ(changedFields(), c.fields);
    }
}

TEST_F(Settings, OutputsThatAreNotWantedMayBeNull)
{
    int first = 0, second = 0;
    unsigned level = 0;
    openCamera();
    prepare("VQD-HT120");
    EXPECT_EQ(vqdGetDepthRange(0, &first, &second), 1);
    EXPECT_EQ(first, 0x5A5A);
    stCamParam[0].image[22] = 0xFF;
    EXPECT_EQ(vqdGetDepthRange(0, nullptr, &second), 1);
    EXPECT_EQ(second, 0xFF5A);
    EXPECT_EQ(vqdGetRemoveMotionBlur(0, &level), 7);
    EXPECT_EQ(level, 0x5Au);
    m_nLogicver[0][0] = 65535;
    m_nLogicver[1][0] = 4;
    EXPECT_EQ(vqdGetLogincVersion(0, &first, nullptr), 1);
    EXPECT_EQ(vqdGetLogincVersion(0, nullptr, &second), 1);
    EXPECT_EQ(first, 65535);
    EXPECT_EQ(second, 4);
    m_dTemperature[0] = -0.0625;
    EXPECT_EQ(vqdGetTemperature(0), -0.0625);
}

TEST_F(Settings, FlipsOfTwoCamerasShareOnePairOfFlags)
{
    usb.plug();
    openCamera(); // numbers 0 and 1
    EXPECT_EQ(vqdSetFlipVertical(1, 1), 1);
    EXPECT_EQ(vqdSetFlipHorizontal(0, 1), 1);
    EXPECT_EQ(usb.camera(0).registers[9], 0xE1);
    EXPECT_EQ(usb.camera(1).registers[9], 0xE3);
    stCamParam[1].image[9] = 0xE2;
    EXPECT_EQ(vqdGetFlipVertical(1), 0); // reading a flip counts too
    EXPECT_EQ(vqdSetFlipHorizontal(0, 1), 1);
    EXPECT_EQ(usb.camera(0).registers[9], 0xE0);
}

} // namespace
