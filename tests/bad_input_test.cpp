// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Device numbers outside 0 to 9, cameras that are not open, null pointers and null handles are refused, and nothing is
// touched.
#include <climits>
#include <cstring>
#include <utility>

#include "support/library_test.h"

namespace
{

using BadInput = LibraryTest;

constexpr unsigned char kUntouched = 0x5A; // in every byte of an image; no call below writes it

// What the calls below may write to if they are not refused.
struct {
    unsigned char bytes[12288];
    uint16_t wide[4096];
    int blocks[4800];
    double factors[2048];
    float lens[12];
    int first, second;
    unsigned level;
    Point3f point;
    FrameInfo info;
    uint16_t* images[2] = {wide, wide};
} out;

// The same, and the library's tables and flags.
std::string everything()
{
    std::string bytes;
    const auto take = [&](const auto&... globals) {
        (bytes.append(reinterpret_cast<const char*>(&globals), sizeof globals), ...);
    };
    take(out, m_stDevInfo, stCamParam, m_pFrameInfo, m_pRGBFrameInfo, m_nDeviceOpen, m_nDeviceCount, m_nReopenTime);
    take(m_bHorizontal, m_bVertical, m_bRemoveEdge, m_bRemoveMotionBlur, m_bFPPN, m_bOrthogonal, m_nUndistortionMode);
    take(m_fIntrinsicParam, m_fDistorParam, m_fRGBIntrinsicParam, m_fRGBDistorParam, m_fExtrinsicParam);
    take(m_fXp2, m_nEEPROMFPPNBuf, m_dOrthogonalData);
    return bytes;
}

struct Answer {
    int result;
    const char* line;
};
constexpr Answer kRefused{0, "VQD Device not opened.\n"}, kNotOpen{-2, "VQD Device not opened.\n"}, kSilent{0, ""};
constexpr Answer kNoHandle{0, "VQD Device handle false\n"}, kNoColour{0, "RGB error\n"};
constexpr Answer kMore{0, nullptr}; // the call does more than refuse; tests of its own cover it

struct Byte {
    int at;
    unsigned char value;
};

struct Call {
    const char* text;
    int (*call)(int n);
    Answer badNumber = kRefused;
    Answer closed = kRefused;
    std::vector<Byte> edited = {}; // on a closed camera, by a call without a device check: it fails when it sends
};

#define CALL(expression) #expression, []([[maybe_unused]] int n) { return static_cast<int>(expression); }
#define CALL_VOID(expression) #expression, []([[maybe_unused]] int n) { return expression, 0; }

const Call kCalls[] = {
    {CALL(VQDDevice_ErrorChecked(n)), kNotOpen, kNotOpen},
    {CALL(vqdDeviceIsOpen(n))},
    {CALL(vqdGrabStart(n))},
    {CALL(vqdGrabStop(n))},
    {CALL(vqdReadBufInit(n))},
    {CALL(vqdReadBufReset(n))},
    {CALL(vqdWriteBufInit(n))},
    {CALL(vqdDeviceOpen(n)), kNoHandle, kNoHandle},
    {CALL(vqdDeviceClose(n)), kNotOpen, kMore},
    {CALL(vqdDeviceReOpen(n)), kNotOpen, kMore},
    {CALL_VOID(UnInitialize_vqdapi(n, 1)), kSilent, kMore},
    {CALL(vqdWriteToDevice(n, out.bytes))},
    {CALL(vqdReadFromDevice(n, out.images, &out.info)), kNotOpen, kMore},
    {CALL(vqdReadFromDevice_RGB888(n, out.bytes, &out.info)), kNoColour, kNoColour},
    {CALL(LoadParameter(n)), kRefused, kMore},
    {CALL(SaveParameter(n)), kRefused, kMore},
    {CALL(vqdParameterData_Load(n, out.bytes))},
    {CALL(vqdEEPROM_ParameterData_Load(n, out.bytes))},
    {CALL(vqdEEPROM_ParameterData_Save(n, out.bytes)), kNotOpen, kNotOpen},
    // Settings check the device before the value.
    {CALL(vqdSetIntegrationTime(n, 1)), kSilent, kSilent},
    {CALL(vqdSetModuleFrequency(n, 20))},
    {CALL(vqdSetOffset(n, 300))},
    {CALL(vqdSetScatterThreshold(n, 3)), kRefused, kRefused, {{0, 3}}},
    {CALL(vqdGetScatterThreshold(n)), kRefused, {kUntouched, ""}},
    {CALL(vqdSetCheckThreshold(n, 3))},
    {CALL(vqdSetMultiCamMode(n, 1, 2, 3)), kRefused, kRefused, {{40, 1}, {41, 2}, {42, 3}}},
    {CALL(vqdSetMultiCamMode(n, 1, 99, 99)), kRefused, {0, "Error: Multi Cam Slave Cam Count(1~9) Over.\n"}},
    {CALL(vqdSetMultiSyncMode(n, 1)), kRefused, kRefused, {{40, 1}}},
    {CALL(vqdGetMultiSyncMode(n)), kRefused, {-4, ""}},
    {CALL(vqdIlluminationOnOff(n, 1)), kRefused, kRefused, {{11, 1}}},
    {CALL(vqdSetDepthRange(n, 16000, 16000))},
    {CALL(vqdGetDepthRange(n, &out.first, &out.second))},
    {CALL(vqdSetFlipHorizontal(n, 1))},
    {CALL(vqdSetFlipVertical(n, 1))},
    {CALL(vqdSetFPSDelay(n, 200))},
    {CALL(vqdGetLogincVersion(n, &out.first, &out.second))},
    {CALL(vqdSetRemoveEdge(n, 1))},
    {CALL(vqdSetRemoveMotionBlur(n, 1, 1))},
    {CALL(vqdGetRemoveMotionBlur(n, &out.level))},
    {CALL(vqdGetIntegrationTime(n))},
    {CALL(vqdGetModuleFrequency(n))},
    {CALL(vqdGetOffset(n))},
    {CALL(vqdGetCheckThreshold(n))},
    {CALL(vqdGetFPSDelay(n))},
    {CALL(vqdGetFlipHorizontal(n))},
    {CALL(vqdGetFlipVertical(n))},
    {CALL(vqdGetRemoveEdge(n))},
    {CALL(vqdGetFPPN(n))},
    {CALL(vqdGetOrthogonal(n))},
    {CALL(vqdGetUndistortion(n))},
    {CALL(BuildUndistortionMap(n))},
    {CALL(vqdGetTemperature(n))},
    // Corrections, their tables and lenses.
    {CALL(vqdSetFPPN(n, 1))},
    {CALL(vqdSetOrthogonal(n, 1))},
    {CALL(vqdSetUndistortion(n, 2)), kRefused, kMore},
    {CALL_VOID(vqdGetUndistortPixel(n, &out.first, &out.second)), kSilent, kMore},
    {CALL(vqdSaveWigglingData(n, out.bytes))},
    {CALL(vqdSaveWigglingData2(n, out.bytes, 0))},
    {CALL(vqdSaveFPPNData(n, out.bytes))},
    {CALL(vqdSaveFPPNData_4x4(n, out.bytes, 1))},
    {CALL(vqdSaveFPPNData_5x5(n, out.bytes, 1))},
    {CALL(vqdSaveOrthogonalData(n, out.bytes))},
    {CALL(vqdLoadWigglingData(n, out.wide, 0, 8192))},
    {CALL(vqdLoadFPPNData_4x4(n, out.blocks))},
    {CALL(vqdLoadFPPNData_5x5(n, out.blocks))},
    {CALL(vqdLoadOrthogonalData(n, out.factors))},
    {CALL_VOID(LoadOrthogonalTable(n)), kSilent, kMore},
    {CALL(vqdSetLensParameter(n, {1, 2, 3, 4}, {}))},
    {CALL(vqdGetLensParameter(n, out.lens, out.lens + 4))},
    {CALL(vqdSetRGBLensParameter(n, {1, 2, 3, 4}, {}))},
    {CALL(vqdGetRGBLensParameter(n, out.lens, out.lens + 4))},
    {CALL(vqdSetExtrinsicParameter(n, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}))},
    {CALL(vqdGetExtrinsicParameter(n, out.lens))},
};

// Values that a call which is not refused would change or return.
void prepare()
{
    memset(stCamParam[0].image, kUntouched, sizeof stCamParam[0].image);
    m_bRemoveEdge = m_bRemoveMotionBlur = m_bFPPN = m_bOrthogonal = m_nUndistortionMode = 7;
    m_dTemperature[0] = 25;
}

TEST_F(BadInput, NumbersOutsideTheTablesAreCamerasThatAreNotOpen)
{
    openCamera();
    prepare();
    const std::string before = everything();
    for (const Call& c : kCalls)
        for (const int n : {-1, 10, INT_MAX, INT_MIN}) {
            SCOPED_TRACE(testing::Message() << c.text << " with " << n);
            EXPECT_EQ(printed([&] { EXPECT_EQ(c.call(n), c.badNumber.result); }), c.badNumber.line);
            EXPECT_TRUE(everything() == before);
        }
    EXPECT_EQ(usb.conversation(), "");
    EXPECT_EQ(usb.contextUses, 1);
}

TEST_F(BadInput, AClosedCameraIsRefusedBeforeOrInTheSend)
{
    openCamera();
    printed([] { vqdDeviceClose(0); });
    prepare();
    usb.conversation();
    const std::string before = everything();
    for (const Call& c : kCalls) {
        if (c.closed.line == nullptr)
            continue;
        SCOPED_TRACE(c.text);
        EXPECT_EQ(printed([&] { EXPECT_EQ(c.call(0), c.closed.result); }), c.closed.line);
        for (const auto& [at, value] : c.edited)
            EXPECT_EQ(std::exchange(stCamParam[0].image[at], kUntouched), value);
        EXPECT_TRUE(everything() == before);
    }
    EXPECT_EQ(usb.conversation(), "");
}

const struct {
    const char* text;
    int (*call)(int n);
    const char* line = "";
} kWithoutPointers[] = {
    {CALL(vqdWriteToDevice(n, nullptr))},
    {CALL(vqdEEPROM_ParameterData_Save(n, nullptr))},
    {CALL(vqdEEPROM_ParameterData_Load(n, nullptr))},
    {CALL(vqdParameterData_Load(n, nullptr))},
    {CALL(vqdReadFromDevice_RGB888(n, nullptr, &out.info)), "RGB error\n"},
    {CALL(vqdReadFromDevice_RGB888(n, out.bytes, nullptr)), "RGB error\n"},
    {CALL(vqdSaveWigglingData(n, nullptr))},
    {CALL(vqdSaveWigglingData2(n, nullptr, 0))},
    {CALL(vqdSaveFPPNData(n, nullptr))},
    {CALL(vqdSaveFPPNData_4x4(n, nullptr, 0))},
    {CALL(vqdSaveFPPNData_5x5(n, nullptr, 0))},
    {CALL(vqdSaveOrthogonalData(n, nullptr))},
    {CALL(vqdLoadWigglingData(n, nullptr, 0, 8192))},
    {CALL(vqdLoadFPPNData_4x4(n, nullptr))},
    {CALL(vqdLoadFPPNData_5x5(n, nullptr))},
    {CALL(vqdLoadOrthogonalData(n, nullptr))},
    {CALL_VOID(vqdGetUndistortPixel(n, nullptr, &out.second))},
    {CALL_VOID(vqdGetUndistortPixel(n, &out.first, nullptr))},
    {CALL_VOID(vqdDepthFrameToCameraSpace(nullptr, &out.point, 1, 1))},
    {CALL_VOID(vqdDepthFrameToCameraSpace(out.wide, nullptr, 1, 1))},
    {CALL_VOID(vqdXYZ3DConversion(nullptr, {}, {}))},
    {CALL_VOID(vqdDepthPointToCameraSpace(nullptr, {}, {}))},
    {CALL_VOID(vqdCameraSpacePointToDepth(nullptr, {}, {}))},
    {CALL_VOID(vqdAmplitudeCheckFilter(nullptr, out.wide, 255, 1, 1))},
    {CALL_VOID(vqdAmplitudeCheckFilter(out.wide, nullptr, 255, 1, 1))},
    {CALL_VOID(vqdScatteringCheckFilter(nullptr, out.wide, 255, 1, 1))},
    {CALL_VOID(vqdScatteringCheckFilter(out.wide, nullptr, 255, 1, 1))},
    {CALL_VOID(vqdMinMaxCheckFilter(nullptr, 0, 0, 1, 1))},
    {CALL_VOID(DataSort(nullptr, 4))},
};

TEST_F(BadInput, NullPointersAreRefused)
{
    openCamera();
    m_nRGBCamOpen[0] = 1;
    const std::string before = everything();
    for (const auto& c : kWithoutPointers) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(printed([&] { EXPECT_EQ(c.call(0), 0); }), c.line);
        EXPECT_TRUE(everything() == before);
    }
    EXPECT_EQ(usb.conversation(), "");
}

// A null pointer is noticed only where it would be used: the frame is read first, and a lost camera is re-opened first.
TEST_F(BadInput, ReadNeedsImagesAndInfo)
{
    openCamera();
    vqdGrabStart(0);
    uint16_t* half[2] = {amplitude.data(), nullptr};
    for (uint16_t** wanted : {static_cast<uint16_t**>(nullptr), half, images.data()}) {
        usb.conversation();
        EXPECT_EQ(vqdReadFromDevice(0, wanted, wanted == images.data() ? nullptr : &info), 0);
        EXPECT_EQ(usb.conversation(), "in 307712");
    }
    EXPECT_EQ(m_pFrameInfo[0].nFrameCount, 0u);
    EXPECT_GT(m_dTemperature[0], 0);
    UnInitialize_vqdapi(0, 0);
    m_nReopenTime = 499;
    usb.conversation();
    EXPECT_EQ(vqdReadFromDevice(0, nullptr, nullptr), -3);
    EXPECT_EQ(usb.conversation(), "sleep 1");
}

TEST_F(BadInput, WrappersTakeNullHandles)
{
    char text[8] = "before";
    libusb_device_descriptor descriptor;
    libusb_config_descriptor* configuration = nullptr;
    unsigned char byte = 0;
    int moved = 0;
    EXPECT_EQ(usb_get_device_descriptor(nullptr, &descriptor), -4);
    EXPECT_EQ(usb_getvendor(nullptr), 0);
    EXPECT_EQ(usb_get_SerialNumber(nullptr, text, sizeof text), text);
    EXPECT_STREQ(text, "before");
    EXPECT_EQ(usb_get_busnumber(nullptr), 0);
    EXPECT_EQ(usb_claim_interface(nullptr, 0), -4);
    EXPECT_EQ(usb_get_config_descriptor(nullptr, 0, &configuration), -4);
    EXPECT_EQ(usb_control_transfer(nullptr, 0x40, 0xB1, 0, 0, &byte, 1, 1000), -4);
    EXPECT_EQ(usb_bulk_transfer(nullptr, 0x86, &byte, 1, &moved, 1000), -4);
    EXPECT_EQ(device_is_of_interest(nullptr), 0);
    usb_free_config_descriptor(nullptr);
}

} // namespace
