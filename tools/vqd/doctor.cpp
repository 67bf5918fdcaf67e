// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// vqd doctor: why a camera does not work, from the kernel's view of it up to its frame rate.
#include "doctor.h"

#include <cstdlib>
#include <memory>

#include <CLI/CLI.hpp>

#include "host/failure.h"

#include "command_line.h"
#include "commands.h"
#include "interrupt.h"
#include "messages.h"
#include "options.h"
#include "output.h"

namespace
{

void findSoftware(Findings& findings)
{
    findings.add(Level::ok, "software", "vqd " VQD_VERSION ", libusb " + libusbVersion());
    if (getenv("UMOCKDEV_DIR") != nullptr)
        findings.add(Level::ok, "virtual bus", "cameras, sysfs and device nodes are simulated");
}

// What the looks at the cameras themselves bring for a report.
struct Contents {
    std::string eeproms, lines;
};

Contents examine(Findings& findings, const std::vector<UsbCamera>& cameras)
{
    Contents contents;
    std::vector<UsbCamera> reachable;
    findSoftware(findings);
    findPresence(findings, cameras);
    findEvents(findings);
    for (const UsbCamera& camera : cameras) {
        endIfInterrupted();
        if (findAccess(findings, camera))
            reachable.push_back(camera);
        findDriver(findings, camera);
        findLink(findings, camera);
    }
    findBandwidth(findings, cameras);
    findMemory(findings, cameras);
    for (const UsbCamera& camera : reachable) {
        endIfInterrupted();
        contents.eeproms += findEeprom(findings, camera);
    }
    if (findings.healthy())
        contents.lines = findFrames(findings);
    return contents;
}

int doctor(const std::string& reportFile)
{
    if (!reportFile.empty())
        requireWritableFile(reportFile, existing());
    Output output;
    catchInterrupts();
    Findings findings([&](const Finding& finding) {
        if (common.json)
            return;
        output.print("%s", findingText(finding).c_str());
        output.finish();
    });
    const std::vector<UsbCamera> cameras = attachedCameras();
    const Contents contents = examine(findings, cameras);
    if (!findings.healthy())
        output.showLibraryLines();
    output.finish(findings.json(), findings.verdict());
    if (!reportFile.empty()) {
        writeFile(reportFile, tarGz(reportFiles(findings, cameras, contents.eeproms, contents.lines)), existing());
        note("%s holds the findings, versions, the cameras' places on the bus, their EEPROM and the library's lines; "
             "README.txt in it describes each file",
             reportFile.c_str());
    }
    return findings.healthy() ? kDone : kFailed;
}

} // namespace

void addDoctor(CLI::App& app, Run& run)
{
    CLI::App* command = app.add_subcommand("doctor", "Finds out why a camera does not work, and says what to do");
    const auto report = std::make_shared<std::string>();
    command->add_option("--report", *report, "Pack the findings into FILE, a .tar.gz for a bug report")
        ->type_name("FILE")
        ->check(notEmpty);
    addCommon(*command, kJson | kForce);
    command->footer("The exit code is 0 when there is no problem, else 1. A report contains no host or user name and "
                    "nothing about other USB devices.\nExample: vqd doctor --report report.tar.gz");
    command->callback([&run, report] { run = [report] { return doctor(*report); }; });
}
