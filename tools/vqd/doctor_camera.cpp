// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The doctor's look at the camera itself: its EEPROM through libusb, and its frames through the library.
#include <array>
#include <chrono>
#include <memory>

#include <libusb.h>

#include "config/param_image.h"
#include "device/base/models.h"
#include "host/arrivals.h"
#include "host/formatted.h"
#include "host/plausibility.h"
#include "usb/vendor_channel.h"

#include "cameras.h"
#include "doctor.h"

namespace
{

// libusb on Linux has a limit of its own, and the FPPN table of 4 x 4 blocks is larger.
void findControlLimit(Findings& findings, const UsbCamera& camera, libusb_device_handle* handle, bool matters)
{
    constexpr uint16_t kFppnTable = 0x4000;
    std::array<uint8_t, 9600> table{};
    const int moved = libusb_control_transfer(handle, kVendorIn, kRequestReadTable, kFppnTable, 0, table.data(),
                                              table.size(), kRequestTimeoutMs);
    if (moved != LIBUSB_ERROR_INVALID_PARAM)
        return findings.add(Level::ok, camera.port, "libusb allows control transfers of 9600 bytes");
    const std::string text = "libusb " + libusbVersion() +
                             " refuses control transfers above 4096 bytes, so wiggling and FPPN tables read as zeros";
    if (matters)
        findings.add(Level::warning, camera.port, text + "; FPPN correction is on, but adds nothing",
                     "\"vqd profile import --fppn camera\" reads the table past libusb and keeps it for this camera.");
    else
        findings.add(Level::ok, camera.port, text + "; FPPN correction is off");
}

std::string judgeEeprom(Findings& findings, const UsbCamera& camera, libusb_device_handle* handle)
{
    const EepromRead read = readEeprom(handle);
    if (!read.whole()) {
        findings.add(Level::problem, camera.port,
                     "its EEPROM cannot be read: " + (read.moved < 0 ? std::string(libusb_error_name(read.moved))
                                                                     : formatted("%d of 128 bytes", read.moved)),
                     "Unplug the camera and plug it in again. If that does not help, use another cable or port.");
        return {};
    }
    const Eeprom& eeprom = read.bytes;
    std::string digits;
    for (const uint8_t byte : eeprom)
        digits += formatted("%02x", byte);
    digits += "  " + camera.port + '\n';
    if (!read.isSigned()) {
        findings.add(Level::problem, camera.port,
                     formatted("its EEPROM has no signature (%02x, not %02x), so factory settings and a standard lens "
                               "are used instead",
                               eeprom[kSignature], kSignatureValue),
                     "Restore a backup with \"vqd eeprom restore FILE\". Without one, the camera must be calibrated "
                     "again.");
        return digits;
    }
    const std::vector<Implausible> implausible = implausibleIn(eeprom);
    for (const Implausible& one : implausible)
        findings.add(Level::warning, camera.port, "its EEPROM: " + one.text, one.remedy);
    if (implausible.empty())
        findings.add(Level::ok, camera.port, "EEPROM signed, depth lens " + depthLensText(eeprom));
    findControlLimit(findings, camera, handle,
                     IsHostCorrectedProduct(camera.product.c_str()) && (eeprom[kCorrectionCode] & kFppnBit) != 0);
    return digits;
}

void findFrameRate(Findings& findings, const ListedCamera& camera)
{
    using Clock = std::chrono::steady_clock;
    constexpr std::chrono::seconds kEnough(2);
    constexpr double kTolerance = 0.9;
    const std::string subject = std::string("camera ") + camera.szSerialNumber;
    const auto frame = std::make_unique<DepthFrame>();
    Stream stream(camera);
    stream.read(*frame);
    const Clock::time_point start = Clock::now();
    int count = 0;
    for (; Clock::now() - start < kEnough; ++count)
        stream.read(*frame);
    const double rate = count / std::chrono::duration<double>(Clock::now() - start).count();
    const double expected = 1000 / nominalInterval(camera.nIndex);
    const bool alone = vqdGetMultiSyncMode(camera.nIndex) != 1; // otherwise the cameras take turns
    const std::string text =
        formatted("%.1f frames a second", rate) + (alone ? formatted(", %.1f expected", expected) : "");
    if (!alone || rate >= kTolerance * expected)
        return findings.add(Level::ok, subject, text);
    findings.add(Level::warning, subject, text,
                 "Other traffic on the bus or a busy machine slows it down: \"vqd stats\" shows errors and jitter.");
}

} // namespace

std::string libusbVersion()
{
    const libusb_version* version = libusb_get_version();
    return formatted("%u.%u.%u", version->major, version->minor, version->micro);
}

std::string findEeprom(Findings& findings, const UsbCamera& camera)
{
    libusb_context* context = nullptr;
    if (const int error = libusb_init(&context); error != 0) {
        findings.add(Level::problem, "libusb", std::string("it does not start: ") + libusb_error_name(error));
        return {};
    }
    libusb_device** devices = nullptr;
    const ssize_t count = libusb_get_device_list(context, &devices);
    libusb_device_handle* handle = nullptr;
    int error = LIBUSB_ERROR_NOT_FOUND;
    for (ssize_t i = 0; i < count; ++i)
        if (libusb_get_bus_number(devices[i]) == camera.bus && libusb_get_device_address(devices[i]) == camera.address)
            error = libusb_open(devices[i], &handle);
    if (count >= 0)
        libusb_free_device_list(devices, 1);
    std::string digits;
    if (error == 0) {
        digits = judgeEeprom(findings, camera, handle);
        libusb_close(handle);
    } else {
        findings.add(Level::problem, camera.port, std::string("libusb cannot open it: ") + libusb_error_name(error),
                     "Unplug the camera and plug it in again.");
    }
    libusb_exit(context);
    return digits;
}

std::string findFrames(Findings& findings)
{
    LibraryLines lines;
    try {
        const Cameras cameras;
        for (const ListedCamera& camera : cameras.all()) {
            cameras.loadAlone(camera);
            findFrameRate(findings, camera);
        }
    } catch (const NoUsbMemory&) {
        findings.add(Level::problem, "usbfs memory",
                     "the kernel has none left for a frame; the transfers of all programs share it", kMoreUsbMemory);
    } catch (const Failure& failure) {
        if (failure.code == kInterrupted)
            throw;
        findings.add(Level::problem, "library", failure.what(),
                     "Unplug the camera and plug it in again. The library's lines are on standard error.");
    }
    std::string text;
    for (const std::string& line : lines.take())
        text += line + '\n';
    return text;
}
