// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// vqd selftest: a checklist on a real camera. Whatever happens, the camera is left as it was: at the end, after a
// failure and after a signal.
#include <memory>

#include <CLI/CLI.hpp>

#include "host/formatted.h"

#include "cameras.h"
#include "commands.h"
#include "interrupt.h"
#include "options.h"
#include "output.h"
#include "selftest_checks.h"

namespace
{

constexpr const char* kResultNames[] = {"PASS", "FAIL", "SKIP"};

int selftest(int frameCount)
{
    Output output;
    LibraryLines lines;
    const Cameras cameras;
    const ListedCamera& camera = cameras.chooseToChange();
    cameras.loadAlone(camera);
    Json json = document("selftest");
    json["camera"] = identityJson(camera);
    json["checks"] = Json::array();
    const auto bench = std::make_unique<Bench>(camera, lines, frameCount);
    if (!common.json)
        output.print("%s, serial %s\n", camera.szDeviceName, camera.szSerialNumber);
    int failed = 0;
    for (const Check& check : selftestChecks()) {
        endIfInterrupted();
        const Verdict found =
            check.possible(*bench) ? check.run(*bench) : Verdict{Result::skip, "not possible after an earlier failure"};
        const char* name = kResultNames[static_cast<int>(found.result)];
        failed += found.result == Result::fail;
        json["checks"].push_back({{"name", check.name}, {"result", name}, {"detail", found.text}});
        if (!common.json) {
            output.print("%s  %-17s  %s\n", name, check.name, found.text.c_str());
            output.finish();
        }
    }
    json["passed"] = failed == 0;
    output.finish(json,
                  failed == 0 ? "passed\n" : formatted("failed: %d of %zu checks\n", failed, selftestChecks().size()));
    lines.take();
    if (failed > 0)
        output.showLibraryLines();
    return failed == 0 ? kDone : kFailed;
}

} // namespace

void addSelftest(CLI::App& app, Run& run)
{
    CLI::App* command = app.add_subcommand("selftest", "Checks a camera item by item, and leaves it as it was");
    const auto frames = std::make_shared<int>(60);
    command->add_option("-n,--frames", *frames, "Frames to read for the checks on frames")
        ->check(CLI::Range(2, 1'000'000))
        ->capture_default_str();
    addCommon(*command, kCamera | kJson);
    command->footer("Point the camera at something that differs from its mirror image. The checks take about 20 s. The "
                    "exit code is 0 when nothing failed, else 1.\nExample: vqd selftest --json");
    command->callback([&run, frames] { run = [frames] { return selftest(*frames); }; });
}
