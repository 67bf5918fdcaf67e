// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Runs every operation of the library with its k-th USB call going wrong, for every k and every way of going wrong.
// Each case is a process of its own, which is forked when the operation is about to start.
#include <cstdlib>
#include <cstring>
#include <set>
#include <sys/wait.h>
#include <unistd.h>

#include "support/library_test.h"
#include "support/marked_source.h"

namespace
{

// What an operation may write to, and guards behind it that must stay as they are.
struct Buffers {
    std::array<DevInfo, VQD_MAX_DEVICES> list;
    int count;
    uint64_t guard0;
    std::array<uint16_t, VQD_PIXELS> amplitude;
    uint64_t guard1;
    std::array<uint16_t, VQD_PIXELS> depth;
    uint64_t guard2;
    FrameInfo info;
    uint64_t guard3;
    std::array<unsigned char, 9600> bytes; // an image, or a table to send
    uint64_t guard4;
    std::array<int, 4800> table; // the largest table that is read
    uint64_t guard5;

    static constexpr uint64_t kGuard = 0xA5A5'5A5A'C3C3'3C3C;
    Buffers() { guard0 = guard1 = guard2 = guard3 = guard4 = guard5 = kGuard; }
    bool guarded() const
    {
        return std::set{guard0, guard1, guard2, guard3, guard4, guard5} == std::set{kGuard} && count <= 1;
    }
    int read()
    {
        uint16_t* images[2] = {amplitude.data(), depth.data()};
        return vqdReadFromDevice(0, images, &info);
    }
};

Buffers b;

enum class From { nothing, listed, opened, grabbing };
enum class Kind { other, setter, reader }; // when a setter returns 1, its setting has reached the camera

struct Operation {
    const char* name;
    From from;
    int (*run)();
    std::set<int> allowed;
    Kind kind = Kind::other;
};

void PrintTo(const Operation& operation, std::ostream* out)
{
    *out << operation.name;
}

const LensIntrinsic kLens{204, 204, 160, 120};
const std::set<int> kDone{1}, kDoneOrNot{0, 1};

const Operation kOperations[] = {
    {"List", From::nothing, [] { return vqdGetDeviceList(b.list.data(), &b.count); }, {1, -2}},
    {"ListAgain", From::grabbing, [] { return vqdGetDeviceList(b.list.data(), &b.count); }, {1, -2}},
    {"Open", From::listed, [] { return vqdDeviceOpen(0); }, kDoneOrNot},
    {"GrabStart", From::opened, [] { return vqdGrabStart(0); }, kDoneOrNot},
    {"GrabStop", From::grabbing, [] { return vqdGrabStop(0); }, kDoneOrNot, Kind::setter},
    {"Read", From::grabbing, [] { return b.read(); }, {1, 0, -3}, Kind::reader},
    {"Reopen", From::grabbing, [] { return vqdDeviceReOpen(0); }, {1, 0, -3}, Kind::reader},
    {"Close", From::grabbing, [] { return vqdDeviceClose(0); }, kDone},
    {"WriteBufInit", From::opened, [] { return vqdWriteBufInit(0); }, {0, 63, 64}},
    {"ReadBufReset", From::opened, [] { return vqdReadBufReset(0); }, {0, 63, 64}},
    {"ReadBufInit", From::opened, [] { return vqdReadBufInit(0); }, kDoneOrNot},
    {"EepromSave", From::opened, [] { return vqdEEPROM_ParameterData_Save(0, b.bytes.data()); }, kDone},
    {"EepromLoad", From::opened, [] { return vqdEEPROM_ParameterData_Load(0, b.bytes.data()); }, kDone},
    {"SetLens", From::opened, [] { return vqdSetLensParameter(0, kLens, {}); }, kDone},
    {"SaveWiggling", From::opened, [] { return vqdSaveWigglingData(0, b.bytes.data()); }, kDone},
    {"SaveFppn4x4", From::opened, [] { return vqdSaveFPPNData_4x4(0, b.bytes.data(), 0); }, kDone},
    {"LoadFppn4x4", From::opened, [] { return vqdLoadFPPNData_4x4(0, b.table.data()); }, kDone},
    {"LoadFppn5x5", From::opened, [] { return vqdLoadFPPNData_5x5(0, b.table.data()); }, kDone},
    {"LoadWiggling", From::opened,
     [] { return vqdLoadWigglingData(0, reinterpret_cast<uint16_t*>(b.table.data()), 0, 8192); }, kDone},
    {"LoadOrthogonal", From::opened, [] { return vqdLoadOrthogonalData(0, reinterpret_cast<double*>(b.table.data())); },
     kDoneOrNot},
    {"Write", From::opened, [] { return vqdWriteToDevice(0, b.bytes.data()); }, kDoneOrNot, Kind::setter},
    // A setter of each shape: plain, with a wait after success, with a wait after each send, with maps to build.
    {"Offset", From::opened, [] { return vqdSetOffset(0, -30); }, kDoneOrNot, Kind::setter},
    {"DepthRange", From::opened, [] { return vqdSetDepthRange(0, 200, 4000); }, kDoneOrNot, Kind::setter},
    {"Frequency", From::opened, [] { return vqdSetModuleFrequency(0, 20); }, kDoneOrNot, Kind::setter},
    {"Undistortion", From::opened, [] { return vqdSetUndistortion(0, 1); }, kDoneOrNot, Kind::setter},
};

// The line that the failure of a call prints. The first row that fits counts; calls without a row fail silently.
const struct {
    const char *call, *line;
} kLines[] = {
    {"init", "Error in initializing libusb library..."},
    {"list", "Error in device connection"},
    {"open", "Error in openning device."},
    {"driver", "kernel driver active. Exitting"},
    {"config", "Could not get Config descriptor "},
    {"claim", "Error in claiming interface"},
    {"B1", "ol transfer"}, // "vqdWriteToDevice Contol transfer Error." or "Error in b1 Control transfer"
    {"B2", "rror in b2 Control transfer"},
    {"B3", "Error in b3 Control transfer"},
    {"B4", "Error in b4 Control transfer"},
    {"B8", "VQD EEPROM Parameter Load Fail, Load Default Parameter."},
    {"out 512", "vqdWriteToDevice Bulk transfer Error."},
    {"in 2048", "Error Read Fifo Data"},
    {"in 307712", "ReadFromDevice Read Error, Device Reset2, "},
};

constexpr uint16_t kMark = 1000;

using Spoil = VirtualUsb::Spoil;

class FaultSweep : public testing::TestWithParam<Operation>
{
protected:
    // Brings a camera to the state in which the operation starts.
    void prepare(From from)
    {
        quiet();
        sim::Config config;
        config.source = std::make_shared<Marked>(kMark);
        usb.plug(config);
        ASSERT_TRUE(from < From::listed || vqdGetDeviceList(b.list.data(), &b.count) == 1);
        ASSERT_TRUE(from < From::opened || vqdDeviceOpen(0) == 1);
        ASSERT_TRUE(from < From::grabbing || vqdGrabStart(0) == 1);
        memcpy(b.bytes.data(), stCamParam[0].image, VQD_IMAGE_BYTES);
        usb.conversation();
    }

    // From here the library's lines go to a file of ours.
    void quiet()
    {
        fflush(stdout);
        m_lines = tmpfile();
        dup2(fileno(m_lines), STDOUT_FILENO);
    }
    std::string lines()
    {
        std::string text(20'000, '\0');
        text.resize(static_cast<size_t>(pread(fileno(m_lines), text.data(), text.size(), 0)));
        return text;
    }

    // Runs in the child. Returns what is wrong after the operation met the fault, or nothing.
    std::string verdict(const Operation& operation, Spoil how)
    {
        ftruncate(fileno(m_lines), 0);
        lseek(STDOUT_FILENO, 0, SEEK_SET);
        const int result = operation.run();
        usb.disarm();
        const std::string said = lines();
        if (!operation.allowed.contains(result))
            return "result " + std::to_string(result);
        const bool refused = how < Spoil::shortByOne;
        if (refused)
            for (const auto& [call, line] : kLines)
                if (usb.spoiled == call && said.find(line) == std::string::npos)
                    return "no line for " + usb.spoiled + ": " + said;
        if (operation.kind == Kind::setter && refused && result == 1 &&
            memcmp(usb.camera(0).registers.data(), stCamParam[0].image, VQD_IMAGE_BYTES) != 0)
            return "success, and the camera has another image";
        if (usb.spoiled == "B7" && refused && said.find("Success") != std::string::npos)
            return "an EEPROM write that failed is praised";
        return sound(how, result);
    }

    // Once the fault is over, everything must work again.
    std::string sound(Spoil how, int result)
    {
        if (how == Spoil::gone || how == Spoil::goneForAWhile)
            if (!usb.camera(0).plugged())
                usb.replug(0);
        if (GetParam().kind == Kind::reader && result == 1 && b.read() != 1)
            return "reading does not go on";
        if (vqdGetDeviceList(b.list.data(), &b.count) != 1 || b.count != 1)
            return "the next listing fails: " + lines();
        if (vqdDeviceOpen(0) != 1)
            return "the next open fails: " + lines();
        // Only a re-open resets the camera, which ends the halt of an endpoint that stalled.
        if ((usb.isHalted(0, 0x02) || usb.isHalted(0, 0x86)) && vqdDeviceReOpen(0) != 1)
            return "a re-open does not help an endpoint that stalled: " + lines();
        if (vqdSetUndistortion(0, 0) != 1 || vqdGrabStart(0) != 1 || b.read() != 1)
            return "the next session fails: " + lines();
        if (Marked(kMark).wrongPixels(frameInBuffer(), b.amplitude.data(), b.depth.data()) != 0)
            return "the next frame is wrong";
        if (vqdDeviceClose(0) != 1)
            return "the next close fails";
        if (usb.openHandles() != 0 || usb.listsHeld != 0 || usb.configurationsHeld != 0 || usb.contextUses != 0)
            return "something is still held";
        if (!usb.violations.empty())
            return usb.violations[0];
        return b.guarded() ? "" : "written behind a buffer";
    }

    enum Outcome { kSound, kUnsound, kNotReached };

    Outcome runCase(unsigned nth, Spoil how)
    {
        const pid_t child = fork();
        if (child == 0) {
            alarm(60);
            usb.spoil(nth, how);
            const std::string wrong = verdict(GetParam(), how);
            if (!wrong.empty())
                fprintf(stderr, "call %u (%s), fault %d: %s\n", nth, usb.spoiled.c_str(), static_cast<int>(how),
                        wrong.c_str());
            _exit(!wrong.empty() ? kUnsound : usb.spoiled.empty() ? kNotReached : kSound);
        }
        int status = 0;
        waitpid(child, &status, 0);
        return WIFEXITED(status) ? static_cast<Outcome>(WEXITSTATUS(status)) : kUnsound;
    }

    VirtualUsb& usb = VirtualUsb::get();
    FILE* m_lines = nullptr;
};

TEST_P(FaultSweep, EndsWellAndLeavesNothingBehind)
{
    prepare(GetParam().from);
    unsigned faults = 0;
    for (const Spoil how : {Spoil::stall, Spoil::timeout, Spoil::noDevice, Spoil::overflow, Spoil::noMemory,
                            Spoil::shortByOne, Spoil::zeroBytes, Spoil::gone, Spoil::goneForAWhile})
        for (unsigned nth = 1;; ++nth) {
            const Outcome outcome = runCase(nth, how);
            if (outcome == kNotReached)
                break;
            ASSERT_EQ(outcome, kSound) << "call " << nth << ", fault " << static_cast<int>(how);
            ++faults;
        }
    EXPECT_GT(faults, 0u);
    fprintf(stderr, "%u faults injected into %s\n", faults, GetParam().name);
}

INSTANTIATE_TEST_SUITE_P(All, FaultSweep, testing::ValuesIn(kOperations),
                         [](const auto& operation) { return operation.param.name; });

} // namespace
