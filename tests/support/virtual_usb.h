// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The libusb functions, the clock and the sleeps of a test program. The linker finds them before the shared library's
// own dependencies, so the shipped libVQD_API.so talks to virtual cameras in virtual time, and tests see every call.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include <libusb.h>

#include "sim/camera.h"

// The one bus of the program: what it is told to do, and what the library has done.
class VirtualUsb
{
public:
    static VirtualUsb& get();
    void reset(); // to the state at the program's start

    size_t plug(sim::Config config = {}, uint8_t busNumber = 1);
    void unplug(size_t port, sim::TimeUs backAfter = sim::kNever);
    void replug(size_t port); // on a new address
    void replug(size_t port, uint8_t address);
    bool onePlace = false; // every device reports bus 1, address 1
    sim::Camera& camera(size_t port);
    uint8_t address(size_t port) const;

    bool isHalted(size_t port, uint8_t endpoint); // as it is after a stall, until a reset

    // Makes calls of "init", "list", "open", "descriptor", "config", "claim", "driver", "reset", "string", "control" or
    // "bulk" end with `result`: the nth from now on and the times - 1 after it, or all from the nth on when times is 0.
    void fail(const std::string& call, int result, unsigned nth = 1, unsigned times = 1);
    std::function<int(int index, unsigned char* data, int length)> answerString; // replaces the cameras' own strings
    std::function<int(std::span<uint8_t> data, size_t& moved)> answerBulkIn;     // replaces their bulk IN

    // What can happen to a call. Those before shortByOne end it with their result. The camera that goes is the one at
    // port 0. A call that moves no bytes cannot be cut short.
    enum class Spoil {
        stall = LIBUSB_ERROR_PIPE,
        timeout = LIBUSB_ERROR_TIMEOUT,
        noDevice = LIBUSB_ERROR_NO_DEVICE,
        overflow = LIBUSB_ERROR_OVERFLOW,
        noMemory = LIBUSB_ERROR_NO_MEM,
        shortByOne = 0,
        zeroBytes,
        gone,
        goneForAWhile,
    };
    // Happens to the nth call from now on that can fail. `spoiled` then says which one that was: "claim", "B1",
    // "in 2048".
    void spoil(unsigned nth, Spoil how);
    void disarm();
    std::string spoiled;

    // What the library did since the last call of this function, as text: "B1 64, wait 100000, out 512, wait 200000".
    // Control requests stand by number and bytes, bulk transfers as "out" or "in" and bytes; a failed one ends in its
    // negative result. Pure look-ups (descriptors, ids, addresses) are not listed.
    std::string conversation();
    bool logClock = false; // also lists clock readings, as "clock"
    sim::TimeUs now = 1'700'000'000'000'000;
    sim::TimeUs clockStep = 0;      // the clock runs on by this much after each reading
    unsigned interruptedWaits = 0;  // a signal cuts this many waits short at once
    bool stockControlLimit = false; // refuse control transfers above 4096 bytes, as libusb does on Linux

    // Where no udev events arrive, a context's list stays as it was when the context started.
    bool frozenLists = false;
    sim::TimeUs listDelay = 0;               // from a replug until lists show the camera: udev's rules run
    std::string systemRoot = "/nonexistent"; // in front of the library's /sys and /dev

    // What the library holds right now.
    int contextUses = 0; // of the default context
    int furtherContexts = 0;
    int listsHeld = 0;
    int configurationsHeld = 0;
    int openHandles() const;
    unsigned closes = 0;
    std::vector<std::string> violations; // handles used after their close, unbalanced contexts, and the like
};
