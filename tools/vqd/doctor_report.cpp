// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The doctor's report for a bug report: findings, versions, places on the bus, EEPROM and the library's lines.
#include <fstream>
#include <map>
#include <sys/utsname.h>
#include <unistd.h>

#include "host/documents.h"
#include "host/formatted.h"

#include "doctor.h"

namespace
{

constexpr char kReadme[] = "What vqd doctor found. In this archive:\n"
                           "findings.txt, findings.json  what it found, and what to do\n"
                           "system.txt   kernel, distribution and versions\n"
                           "usb.txt      the cameras and the hubs that they are plugged into\n"
                           "eeprom.txt   each camera's EEPROM, which contains the camera's serial number\n"
                           "library.txt  what the library printed\n"
                           "There is no host or user name, and nothing about other USB devices.\n";
constexpr char kPictures[] = "recordings/*.mcap  what the cameras saw, for vqd sim --play\n";
constexpr char kNoPictures[] = "There is no picture either.\n";

std::string systemText()
{
    utsname system{};
    uname(&system);
    std::string name;
    std::ifstream release("/etc/os-release");
    for (std::string line; std::getline(release, line);)
        if (line.starts_with("PRETTY_NAME="))
            name = line;
    return formatted("%s %s %s\n%s\nvqd " VQD_VERSION "\nlibusb %s\nprocessors %ld\nusbfs_memory_mb %s\n",
                     system.sysname, system.release, system.machine, name.c_str(), libusbVersion().c_str(),
                     sysconf(_SC_NPROCESSORS_ONLN), firstLine(kUsbMemoryLimit).c_str());
}

// The cameras and the hubs above them, without serial numbers.
std::string busText(const std::vector<UsbCamera>& cameras)
{
    constexpr const char* kAttributes[] = {"idVendor", "idProduct", "bcdDevice", "manufacturer", "product",
                                           "speed",    "version",   "bMaxPower", "maxchild",     "power/control"};
    std::map<std::string, std::string> texts;
    for (const UsbCamera& camera : cameras)
        for (std::string port = camera.port; !port.empty(); port = hubOf(port))
            if (std::string& text = texts[port]; text.empty()) {
                text = port + '\n';
                for (const char* name : kAttributes)
                    text += formatted("  %-14s%s\n", name, usbAttribute(port, name).c_str());
            }
    std::string all;
    for (const auto& [port, text] : texts)
        all += text;
    return all;
}

} // namespace

std::vector<PackedFile> reportFiles(const Findings& findings, const std::vector<UsbCamera>& cameras,
                                    const Contents& contents)
{
    std::string texts;
    for (const Finding& finding : findings.all())
        texts += findingText(finding);
    std::vector<PackedFile> files{
        {"README.txt", std::string(kReadme) + (contents.recordings.empty() ? kNoPictures : kPictures)},
        {"findings.txt", texts},
        {"findings.json", documentText(findings.json())},
        {"system.txt", systemText()},
        {"usb.txt", busText(cameras)},
        {"eeprom.txt", contents.eeproms},
        {"library.txt", contents.lines},
    };
    files.insert(files.end(), contents.recordings.begin(), contents.recordings.end());
    return files;
}
