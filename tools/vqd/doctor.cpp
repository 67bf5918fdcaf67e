// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// vqd doctor: why a camera does not work, from the kernel's view of it up to its frame rate. Each look gives a finding;
// what a problem would spoil is not tried.
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <fstream>
#include <grp.h>
#include <map>
#include <memory>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <libusb.h>

#include "host/arrivals.h"
#include "camera.h"
#include "command_line.h"
#include "commands.h"
#include "common.h"
#include "config/param_image.h"
#include "device/models.h"
#include "host/failure.h"
#include "interrupt.h"
#include "host/library_lines.h"
#include "output.h"
#include "host/plausibility.h"
#include "tar_gz.h"
#include "udev_events.h"
#include "usb/vendor_channel.h"
#include "host/usb_devices.h"

namespace
{

enum class Level { ok, warning, problem };

constexpr const char* kLevelNames[] = {"ok", "warning", "problem"};

struct Finding {
    Level level;
    std::string subject, text, remedy;
};

template <typename... Values> std::string formatted(const char* format, Values... values)
{
    char text[512];
    snprintf(text, sizeof text, format, values...);
    return text;
}

constexpr char kRuleFile[] = "/etc/udev/rules.d/70-vqd.rules";
constexpr char kRule[] = R"(SUBSYSTEM=="usb", ATTR{idVendor}=="03a4", MODE="0660", GROUP="plugdev", TAG+="uaccess")";

class Doctor
{
public:
    explicit Doctor(Output& output) : m_output(output) {}

    void examine()
    {
        versions();
        m_cameras = attachedCameras();
        presence();
        events();
        for (const UsbCamera& camera : m_cameras) {
            endIfInterrupted();
            node(camera);
            driver(camera);
            link(camera);
        }
        bandwidth();
        memory();
        for (const UsbCamera& camera : m_cameras) {
            endIfInterrupted();
            if (m_reachable[camera.node])
                readEeprom(camera);
        }
        if (m_problems == 0)
            frames();
    }

    bool healthy() const { return m_problems == 0; }

    Json json() const
    {
        Json json = document("doctor");
        json["findings"] = Json::array();
        for (const Finding& finding : m_findings)
            json["findings"].push_back({{"level", kLevelNames[static_cast<int>(finding.level)]},
                                        {"subject", finding.subject},
                                        {"text", finding.text},
                                        {"remedy", finding.remedy}});
        json["healthy"] = healthy();
        return json;
    }

    std::vector<PackedFile> report() const;

private:
    void find(Level level, const std::string& subject, const std::string& text, const std::string& remedy = {})
    {
        m_findings.push_back({level, subject, text, remedy});
        m_problems += level == Level::problem;
        if (common.json)
            return;
        m_output.print("%s", asText(m_findings.back()).c_str());
        m_output.finish();
    }

    // "problem  1-2: ...", and what to do on lines of its own.
    static std::string asText(const Finding& finding)
    {
        std::string text = formatted("%-8s ", kLevelNames[static_cast<int>(finding.level)]) + finding.subject + ": " +
                           finding.text + '\n';
        for (size_t at = 0; at < finding.remedy.size();) {
            const size_t end = std::min(finding.remedy.find('\n', at), finding.remedy.size());
            text += "         " + finding.remedy.substr(at, end - at) + '\n';
            at = end + 1;
        }
        return text;
    }

    void versions();
    void presence();
    void events();
    void node(const UsbCamera& camera);
    void denied(const UsbCamera& camera);
    void driver(const UsbCamera& camera);
    void link(const UsbCamera& camera);
    void bandwidth();
    void memory();
    void readEeprom(const UsbCamera& camera);
    void judgeEeprom(const UsbCamera& camera, libusb_device_handle* handle);
    void controlLimit(const UsbCamera& camera, libusb_device_handle* handle, bool matters);
    void frames();
    void frameRate(const Camera& camera);

    Output& m_output;
    std::vector<UsbCamera> m_cameras;
    std::map<std::string, bool> m_reachable; // by node
    std::vector<Finding> m_findings;
    int m_problems = 0;
    std::string m_lines; // the library's
    std::string m_eeproms;
};

std::string libusbVersion()
{
    const libusb_version* version = libusb_get_version();
    return formatted("%u.%u.%u", version->major, version->minor, version->micro);
}

void Doctor::versions()
{
    find(Level::ok, "software", "vqd " VQD_VERSION ", libusb " + libusbVersion());
    if (getenv("UMOCKDEV_DIR") != nullptr)
        find(Level::ok, "virtual bus", "cameras, sysfs and device nodes are simulated");
}

void Doctor::presence()
{
    if (!hasUsb())
        return find(Level::problem, "USB", "the kernel shows no USB devices in /sys/bus/usb/devices",
                    "In a container or virtual machine: pass USB and /sys through to it.");
    if (m_cameras.empty())
        return find(Level::problem, "USB", "no camera is on the bus",
                    "Check cable, power and port; \"lsusb -d 03a4:\" and \"dmesg\" show what the kernel sees.");
    if (m_cameras.size() > VQD_MAX_DEVICES)
        find(Level::problem, "USB", formatted("%zu cameras are attached", m_cameras.size()),
             formatted("The library takes %d: unplug some.", VQD_MAX_DEVICES));
    for (const UsbCamera& camera : m_cameras)
        find(Level::ok, camera.port,
             camera.product + ", USB " + camera.ids + formatted(", bus %d address %d", camera.bus, camera.address));
}

// A virtual bus brings its own events. Not seen: a udevd that stands still, and kernel events that a user namespace of
// this process's own keeps away from a libusb without udev.
void Doctor::events()
{
    if (!hasUsb() || getenv("UMOCKDEV_DIR") != nullptr)
        return;
    if (eventsReachThisProcess())
        return find(Level::ok, "udev", "its events reach this process");
    find(Level::warning, "udev",
         "no udev events reach this process: a program that runs does not hear that a camera was plugged in again",
         "In a container: give it the host's network (--network=host) and mount /run/udev, read-only.\n"
         "Elsewhere: start udevd (package udev).");
}

// The user may use the node, and nobody else does.
void Doctor::node(const UsbCamera& camera)
{
    if (access(camera.node.c_str(), R_OK | W_OK) != 0) {
        if (errno == EACCES || errno == EPERM)
            return denied(camera);
        return find(Level::problem, camera.port, camera.node + ": " + strerror(errno),
                    "In a container: pass /dev/bus/usb through to it. Else unplug the camera and plug it in again.");
    }
    m_reachable[camera.node] = true;
    const std::vector<Holder> holders = holdersOf(camera.node);
    for (const Holder& holder : holders)
        find(Level::problem, camera.port,
             formatted("%s (process %d) has %s open", holder.name.c_str(), holder.process, camera.node.c_str()),
             "One program at a time can use a camera: end that one.");
    if (holders.empty())
        find(Level::ok, camera.port, camera.node + " can be opened, no other program of yours has it open");
}

void Doctor::denied(const UsbCamera& camera)
{
    struct stat status {
    };
    const bool known = stat(camera.node.c_str(), &status) == 0;
    const group* const owner = known ? getgrgid(status.st_gid) : nullptr;
    const std::string text = camera.node + " may not be opened by this user" +
                             (known ? formatted(": group %s, mode %04o", owner != nullptr ? owner->gr_name : "?",
                                                unsigned{status.st_mode & 07777})
                                    : std::string());
    // A group that may, other than root's, has been made for this.
    if (owner != nullptr && status.st_gid != 0 && (status.st_mode & 060) == 060)
        return find(Level::problem, camera.port, text,
                    std::string("sudo adduser \"$USER\" ") + owner->gr_name + "\nThen log out and in again.");
    find(Level::problem, camera.port, text,
         std::string("Put this line into ") + kRuleFile + ":\n" + kRule +
             "\nThen: sudo udevadm control --reload && sudo udevadm trigger\n"
             "sudo adduser \"$USER\" plugdev, and log out and in again (not needed at the machine's own desktop).");
}

void Doctor::driver(const UsbCamera& camera)
{
    // "usbfs" is a program that uses libusb.
    if (camera.driver == "usbfs" && holdersOf(camera.node).empty())
        find(Level::problem, camera.port, "a program of another user has claimed the camera",
             "sudo fuser -v " + camera.node + " tells which; end it.");
    else if (!camera.driver.empty() && camera.driver != "usbfs")
        find(Level::problem, camera.port, "the kernel driver " + camera.driver + " holds the camera's interface",
             "echo " + camera.port + ":1.0 | sudo tee /sys/bus/usb/drivers/" + camera.driver + "/unbind");
    else
        find(Level::ok, camera.port, "no kernel driver holds the camera's interface");
}

void Doctor::link(const UsbCamera& camera)
{
    constexpr double kHighSpeed = 480;
    const std::string hub = hubOf(camera.port);
    const bool direct = hub.starts_with("usb");
    const std::string hubName = usbAttribute(hub, "product"), hubSpeed = usbAttribute(hub, "speed");
    const std::string text = formatted("%g Mbit/s, ", camera.megabits) +
                             (direct ? "at a port of the machine" : "behind the hub " + hub) +
                             (hubName.empty() ? "" : " (" + hubName + ")");
    if (camera.megabits >= kHighSpeed)
        return find(Level::ok, camera.port, text);
    const bool slowHub = !direct && atof(hubSpeed.c_str()) < kHighSpeed;
    find(Level::problem, camera.port, text + ": frames need 480 Mbit/s",
         slowHub ? "The hub is slow: plug the camera into the machine or into a USB 2.0 or 3.0 hub."
                 : "Use another cable (short, for data) and another port.");
}

void Doctor::bandwidth()
{
    constexpr int kMostOnABus = 3; // 9.2 MB/s each at 30 frames a second; a 480 Mbit/s bus carries some 35 MB/s
    std::map<int, int> camerasOn;
    for (const UsbCamera& camera : m_cameras)
        if (camera.megabits <= 480)
            ++camerasOn[camera.bus];
    for (const auto& [bus, count] : camerasOn)
        if (count > kMostOnABus)
            find(Level::warning, formatted("bus %d", bus),
                 formatted("%d cameras share 480 Mbit/s, which is enough for %d at full rate", count, kMostOnABus),
                 "Spread them over several host controllers, or lower their rate with \"vqd set fps-delay=...\".");
}

// A frame's transfer is memory of usbfs, whose sum for all programs has a limit.
void Doctor::memory()
{
    const std::string limit = firstLine(kUsbMemoryLimit);
    if (limit.empty() || m_cameras.empty())
        return;
    const int megabytes = atoi(limit.c_str());
    const int wanted = static_cast<int>(m_cameras.size());
    if (megabytes == 0 || megabytes > wanted)
        return find(Level::ok, "usbfs memory",
                    megabytes == 0 ? "no limit" : formatted("%d MB, cameras: %d", megabytes, wanted));
    find(Level::warning, "usbfs memory", formatted("%d MB is little, cameras: %d", megabytes, wanted), kMoreUsbMemory);
}

void Doctor::readEeprom(const UsbCamera& camera)
{
    libusb_context* context = nullptr;
    if (const int error = libusb_init(&context); error != 0)
        return find(Level::problem, "libusb", std::string("it does not start: ") + libusb_error_name(error));
    libusb_device** devices = nullptr;
    const ssize_t count = libusb_get_device_list(context, &devices);
    libusb_device_handle* handle = nullptr;
    int error = LIBUSB_ERROR_NOT_FOUND;
    for (ssize_t i = 0; i < count; ++i)
        if (libusb_get_bus_number(devices[i]) == camera.bus && libusb_get_device_address(devices[i]) == camera.address)
            error = libusb_open(devices[i], &handle);
    if (count >= 0)
        libusb_free_device_list(devices, 1);
    if (error == 0) {
        judgeEeprom(camera, handle);
        libusb_close(handle);
    } else {
        find(Level::problem, camera.port, std::string("libusb can not open it: ") + libusb_error_name(error),
             "Unplug the camera and plug it in again.");
    }
    libusb_exit(context);
}

void Doctor::judgeEeprom(const UsbCamera& camera, libusb_device_handle* handle)
{
    const auto [moved, eeprom] = ::readEeprom(handle);
    if (moved != VQD_EEPROM_BYTES)
        return find(Level::problem, camera.port,
                    "its EEPROM can not be read: " +
                        (moved < 0 ? std::string(libusb_error_name(moved)) : formatted("%d of 128 bytes", moved)),
                    "Unplug the camera and plug it in again; if that does not help, use another cable or port.");
    for (const uint8_t byte : eeprom)
        m_eeproms += formatted("%02x", byte);
    m_eeproms += "  " + camera.port + '\n';
    if (eeprom[kSignature] != kSignatureValue)
        return find(Level::problem, camera.port,
                    formatted("its EEPROM has no signature (%02x, not %02x): factory settings and a standard lens are "
                              "used instead",
                              eeprom[kSignature], kSignatureValue),
                    "If there is a backup: vqd eeprom restore FILE. Else the camera must be calibrated again.");
    const std::vector<Implausible> implausible = implausibleIn(eeprom);
    for (const Implausible& one : implausible)
        find(Level::warning, camera.port, "its EEPROM: " + one.text, one.remedy);
    if (implausible.empty())
        find(Level::ok, camera.port, "EEPROM signed, depth lens " + depthLensText(eeprom));
    controlLimit(camera, handle,
                 IsHostCorrectedProduct(camera.product.c_str()) && (eeprom[kCorrectionCode] & kFppnBit) != 0);
}

// Libusb on Linux has a limit of its own; the FPPN table of 4 x 4 blocks is larger.
void Doctor::controlLimit(const UsbCamera& camera, libusb_device_handle* handle, bool matters)
{
    constexpr uint16_t kFppnTable = 0x4000;
    std::array<uint8_t, 9600> table{};
    const int moved = libusb_control_transfer(handle, kVendorIn, kRequestReadTable, kFppnTable, 0, table.data(),
                                              table.size(), kRequestTimeoutMs);
    if (moved != LIBUSB_ERROR_INVALID_PARAM)
        return find(Level::ok, camera.port, "libusb lets control transfers of 9600 bytes through");
    const std::string text = "libusb " + libusbVersion() +
                             " refuses control transfers above 4096 bytes: wiggling and "
                             "FPPN tables read as zeros";
    if (matters)
        find(Level::warning, camera.port, text + ", and FPPN correction is on, which adds nothing",
             "No setting helps; \"vqd set fppn=0 --save\" makes it plain.");
    else
        find(Level::ok, camera.port, text + "; FPPN correction is off");
}

// Through the library, as any program does.
void Doctor::frames()
{
    LibraryLines lines;
    const auto keep = [&] {
        for (const std::string& line : lines.take())
            m_lines += line + '\n';
    };
    try {
        const Session session;
        for (const Camera& camera : session.cameras()) {
            session.loadAlone(camera);
            frameRate(camera);
        }
    } catch (const NoUsbMemory&) {
        find(Level::problem, "usbfs memory",
             "the kernel has none left for a frame; other programs' transfers count too", kMoreUsbMemory);
    } catch (const Failure& failure) {
        if (failure.code == kInterrupted)
            throw;
        find(Level::problem, "library", failure.what(),
             "Unplug the camera and plug it in again. What the library printed is on standard error.");
    }
    keep();
}

void Doctor::frameRate(const Camera& camera)
{
    using Clock = std::chrono::steady_clock;
    constexpr std::chrono::seconds kEnough(2);
    constexpr double kTolerance = 0.9;
    const std::string subject = std::string("camera ") + camera.szSerialNumber;
    const auto frame = std::make_unique<Frame>();
    Stream stream(camera);
    stream.read(*frame);
    const Clock::time_point start = Clock::now();
    int count = 0;
    for (; Clock::now() - start < kEnough; ++count)
        stream.read(*frame);
    const double rate = count / std::chrono::duration<double>(Clock::now() - start).count();
    const double expected = 1000 / nominalInterval(camera.nIndex);
    const bool alone = vqdGetMultiSyncMode(camera.nIndex) != 1; // else the cameras take turns
    const std::string text = formatted("%.1f frames a second", rate);
    if (!alone || rate >= kTolerance * expected)
        return find(Level::ok, subject, text + (alone ? formatted(", %.1f expected", expected) : ""));
    find(Level::warning, subject, text + formatted(", %.1f expected", expected),
         "Other traffic on the bus or a busy machine slows it: \"vqd stats\" shows errors and jitter.");
}

std::string systemText()
{
    utsname system{};
    uname(&system);
    std::string text = formatted("%s %s %s\n", system.sysname, system.release, system.machine);
    std::string name;
    std::ifstream release("/etc/os-release");
    for (std::string line; std::getline(release, line);)
        if (line.starts_with("PRETTY_NAME="))
            name = line;
    return text + name + "\nvqd " VQD_VERSION "\nlibusb " + libusbVersion() +
           formatted("\nprocessors %ld\n", sysconf(_SC_NPROCESSORS_ONLN)) + "usbfs_memory_mb " +
           firstLine(kUsbMemoryLimit) + '\n';
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
                    text += formatted("  %-14s", name) + usbAttribute(port, name) + '\n';
            }
    std::string all;
    for (const auto& [port, text] : texts)
        all += text;
    return all;
}

std::vector<PackedFile> Doctor::report() const
{
    std::string findings;
    for (const Finding& finding : m_findings)
        findings += asText(finding);
    std::vector<PackedFile> files = {
        {"findings.txt", findings},
        {"findings.json", json().dump(2, ' ', false, Json::error_handler_t::replace) + '\n'},
        {"system.txt", systemText()},
        {"usb.txt", busText(m_cameras)},
        {"eeprom.txt", m_eeproms},
        {"library.txt", m_lines},
    };
    files.insert(files.begin(), {"README.txt", "What vqd doctor found. In this archive:\n"
                                               "findings.txt, findings.json  what it found, and what to do\n"
                                               "system.txt   kernel, distribution and versions\n"
                                               "usb.txt      the cameras and the hubs that they are plugged into\n"
                                               "eeprom.txt   each camera's EEPROM, with the camera's serial number\n"
                                               "library.txt  what the library printed\n"
                                               "No host or user name, nothing of other USB devices, no pictures.\n"});
    return files;
}

int doctor(const std::string& reportFile)
{
    if (!reportFile.empty())
        requireWritableFile(reportFile);
    Output output;
    catchInterrupts();
    Doctor doctor(output);
    doctor.examine();
    if (!doctor.healthy())
        output.showLibraryLines();
    if (common.json)
        output.print(doctor.json());
    else
        output.print(doctor.healthy() ? "no problem found\n" : "see the problems above\n");
    output.finish();
    if (!reportFile.empty()) {
        writeFile(reportFile, tarGz(doctor.report()));
        note("%s: findings, versions, the cameras' places on the bus and their EEPROM, the library's lines; README.txt "
             "in it tells more",
             reportFile.c_str());
    }
    return doctor.healthy() ? kDone : kFailed;
}

} // namespace

void addDoctor(CLI::App& app, Run& run)
{
    CLI::App* command = app.add_subcommand("doctor", "Finds out why a camera does not work, and says what to do");
    const auto report = std::make_shared<std::string>();
    command->add_option("--report", *report, "Packs what was found into FILE, a .tar.gz for a bug report")
        ->type_name("FILE")
        ->check(notEmpty);
    addCommon(*command, kJson | kForce);
    command->footer("Exit code 0 when there is no problem, else 1. A report holds no host or user name and nothing of "
                    "other USB devices.\nExample: vqd doctor --report report.tar.gz");
    command->callback([&run, report] { run = [report] { return doctor(*report); }; });
}
