// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The parts of vqd doctor. Each looks at one thing and adds what it finds; what a problem would spoil is not tried.
#pragma once

#include <string>
#include <vector>

#include "host/usb_devices.h"

#include "findings.h"
#include "tar_gz.h"

// Of the bus as the kernel shows it: USB, cameras, events, memory, and what several cameras share.
void findPresence(Findings& findings, const std::vector<UsbCamera>& cameras);
void findEvents(Findings& findings);
void findBandwidth(Findings& findings, const std::vector<UsbCamera>& cameras);
void findMemory(Findings& findings, const std::vector<UsbCamera>& cameras);

// Of one camera as the kernel shows it: access, driver, speed. Returns whether this user can open it.
bool findAccess(Findings& findings, const UsbCamera& camera);
void findDriver(Findings& findings, const UsbCamera& camera);
void findLink(Findings& findings, const UsbCamera& camera);

// Of the camera itself: its EEPROM, read through libusb and returned as a line of hexadecimal digits; then frames,
// through the library as in any program, whose lines are returned.
std::string findEeprom(Findings& findings, const UsbCamera& camera);
std::string findFrames(Findings& findings);

// Of all cameras, by way of their workers, so before this process has claimed one: so many seconds of each, as files
// for a report; none when that cannot be done.
std::vector<PackedFile> recordForReport(Findings& findings, int seconds);

std::string libusbVersion();

// What the looks at the cameras themselves bring for a report.
struct Contents {
    std::string eeproms, lines;
    std::vector<PackedFile> recordings;
};

std::vector<PackedFile> reportFiles(const Findings& findings, const std::vector<UsbCamera>& cameras,
                                    const Contents& contents);
