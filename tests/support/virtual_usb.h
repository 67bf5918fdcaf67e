// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The libusb functions, the clock and the sleeps of a test program: they come before the shared library's own
// dependencies, so the shipped libVQD_API.so talks to virtual cameras in virtual time, and every call can be asserted.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include <libusb.h>

#include "sim/camera.h"

// What the library did, as text: "B1 64, wait 100000, out 512, wait 200000". Control requests by number and bytes, bulk
// as "out"/"in" and bytes; a failed one ends in its negative result. Pure look-ups (descriptors, ids, addresses) are
// not listed.
class VirtualUsb
{
public:
    static VirtualUsb& get();
    void reset(); // as at the program's start

    size_t plug(sim::Config config = {}, uint8_t bus = 1);
    void unplug(size_t port, sim::TimeUs backAfter = sim::kNever);
    void replug(size_t port); // on a new address
    void replug(size_t port, uint8_t address);
    void showOnePlace() { m_onePlace = true; } // every device reports bus 1, address 1
    bool showsOnePlace() const { return m_onePlace; }
    sim::Camera& camera(size_t port) { return *m_ports.at(port).camera; }
    uint8_t address(size_t port) const { return m_ports.at(port).address; }

    // The nth call from now on of "init", "list", "open", "descriptor", "config", "claim", "driver", "reset", "string",
    // "control" or "bulk", and the times - 1 after it, end with `result`; times 0: for ever.
    void fail(const std::string& call, int result, unsigned nth = 1, unsigned times = 1);
    std::function<int(int index, unsigned char* data, int length)> answerString; // replaces the cameras' own strings
    std::function<int(std::span<uint8_t> data, size_t& moved)> answerBulkIn;     // and their bulk IN

    // The nth call from now on that can fail meets this; `spoiled` then says which one that was: "claim", "B1",
    // "in 2048". The camera that vanishes is the one at port 0. A call that moves no bytes can not be cut short.
    enum class Spoil { stall, timeout, noDevice, overflow, noMemory, shortByOne, zeroBytes, gone, goneForAWhile };
    void spoil(unsigned nth, Spoil how);
    void disarm() { m_untilSpoil = 0; }
    std::string spoiled;

    std::string conversation(); // since the last call of this function
    bool logClock = false;      // list clock readings too, as "clock"
    sim::TimeUs now = 1'700'000'000'000'000;
    sim::TimeUs clockStep = 0;      // the clock runs on by this much after each reading
    unsigned interruptedWaits = 0;  // so many next waits are cut short by a signal at once
    bool stockControlLimit = false; // refuse control transfers above 4096 bytes, as libusb does on Linux

    // Where no udev events arrive a context's list stays as it was when the context started.
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

private:
    friend struct LibusbCalls;
    struct Port {
        std::unique_ptr<sim::Camera> camera;
        std::shared_ptr<libusb_device> device;
        uint8_t bus, address;
    };
    struct Failure {
        std::string call;
        int result;
        unsigned nth, times;
    };

    void note(const std::string& entry);
    // 0, or the result that the call shall end with.
    int failure(const std::string& call, const std::string& detail = "");
    int spoilNow(const std::string& call, const std::string& detail);
    void attachReturned();
    sim::Camera* cameraOf(libusb_device_handle* handle, const char* call);

    std::vector<std::shared_ptr<libusb_device>> attached() const;
    int init(libusb_context** context);
    void exit(libusb_context* context);

    std::unique_ptr<libusb_context> m_default;
    libusb_context* m_listedFrom = nullptr;
    std::vector<Port> m_ports;
    std::vector<std::shared_ptr<libusb_device>> m_everSeen;
    std::vector<std::unique_ptr<libusb_device_handle>> m_handles;
    std::map<libusb_device**, libusb_context*> m_lists; // held, and where each came from
    std::vector<Failure> m_failures;
    std::vector<std::string> m_log;
    bool m_onePlace = false;
    uint8_t m_nextAddress = 2;
    unsigned m_untilSpoil = 0; // 0: nothing is to be spoiled
    Spoil m_spoil = Spoil::stall;
    enum class Cut { none, lastByte, all } m_cut = Cut::none; // of the transfer under way
};
