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

struct Options {
    std::string report;
    int recordSeconds = 0;
};

Contents examine(Findings& findings, const std::vector<UsbCamera>& cameras, int recordSeconds)
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
    if (findings.healthy() && recordSeconds > 0)
        contents.recordings = recordForReport(findings, recordSeconds);
    else if (recordSeconds > 0)
        findings.add(Level::warning, "recording", "none is made, because of the problems above");
    if (findings.healthy())
        contents.lines = findFrames(findings);
    return contents;
}

int doctor(const Options& options)
{
    const std::string& reportFile = options.report;
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
    const Contents contents = examine(findings, cameras, options.recordSeconds);
    if (!findings.healthy())
        output.showLibraryLines();
    output.finish(findings.json(), findings.verdict());
    if (!reportFile.empty()) {
        writeFile(reportFile, tarGz(reportFiles(findings, cameras, contents)), existing());
        note("%s holds the findings, versions, the cameras' places on the bus, their EEPROM%s and the library's lines; "
             "README.txt in it describes each file",
             reportFile.c_str(), contents.recordings.empty() ? "" : ", what they saw");
    }
    return findings.healthy() ? kDone : kFailed;
}

} // namespace

void addDoctor(CLI::App& app, Run& run)
{
    CLI::App* command = app.add_subcommand("doctor", "Finds out why a camera does not work, and says what to do");
    const auto options = std::make_shared<Options>();
    CLI::Option* report =
        command->add_option("--report", options->report, "Pack the findings into FILE, a .tar.gz for a bug report")
            ->type_name("FILE")
            ->check(notEmpty);
    command
        ->add_option("--with-recording", options->recordSeconds,
                     "Record each camera for so many seconds, and pack that, too: it shows what the cameras see")
        ->type_name("SECONDS")
        ->check(CLI::Range(1, 30))
        ->needs(report);
    addCommon(*command, kJson | kForce);
    command->footer("The exit code is 0 when there is no problem, else 1. A report contains no host or user name and "
                    "nothing about other USB devices.\nExample: vqd doctor --report report.tar.gz");
    command->callback([&run, options] { run = [options] { return doctor(*options); }; });
}
