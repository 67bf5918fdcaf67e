// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// vqd status: the workers, the cameras, and who has which.
#include <CLI/CLI.hpp>

#include "host/formatted.h"
#include "worker/status.h"

#include "commands.h"
#include "options.h"
#include "output.h"

namespace
{

// A member as text, whatever a worker of another version has put there.
std::string textIn(const Json& json, const char* name)
{
    if (!json.is_object() || !json.contains(name) || json[name].is_null())
        return "-";
    return json[name].is_string() ? json[name].get<std::string>() : json[name].dump();
}

double numberIn(const Json& json, const char* name)
{
    return json.contains(name) && json[name].is_number() ? json[name].get<double>() : 0;
}

std::string workerLines(const Json& worker)
{
    const Json camera = worker.value("camera", Json()), clients = worker.value("clients", Json::array());
    const std::string serial = textIn(camera, "serial"), wanted = textIn(worker, "wanted");
    std::string text = formatted("%-14s  %-6s  %-10s  %5.1f  %7.0f  %8.0f  %8.0f  %7zu  %s\n",
                                 (serial == "-" ? wanted : serial).c_str(), textIn(camera, "port").c_str(),
                                 textIn(worker, "state").c_str(), numberIn(worker, "frames-per-second"),
                                 numberIn(worker, "dropped"), numberIn(worker, "reopens"), numberIn(worker, "restarts"),
                                 clients.size(), textIn(worker, "socket").c_str());
    if (const std::string error = textIn(worker, "error"); error != "-")
        text += "    " + error + '\n';
    if (const std::string error = textIn(worker.value("recording", Json()), "error"); error != "-")
        text += "    its recording ended early: " + error + '\n';
    return text;
}

std::string cameraLine(const Json& camera)
{
    const Json& holder = camera["holder"];
    const std::string user =
        holder.is_null() ? "nobody" : textIn(holder, "program") + " (process " + textIn(holder, "process") + ")";
    return textIn(camera, "product") + " at " + textIn(camera, "port") + " is used by " + user + '\n';
}

int status()
{
    Output output;
    const Json json = machineStatus();
    std::string text;
    for (const Json& worker : json["workers"])
        text += workerLines(worker);
    if (!text.empty())
        text =
            "serial          port    state         fps  dropped  re-opens  restarts  readers  socket\n" + text + '\n';
    for (const Json& camera : json["cameras"])
        text += cameraLine(camera);
    output.finish(json, text.empty() ? "no worker and no camera\n" : text);
    return kDone;
}

} // namespace

void addStatus(CLI::App& app, Run& run)
{
    CLI::App* command = app.add_subcommand("status", "Shows the workers, the cameras, and who has which");
    addCommon(*command, kJson);
    command->footer("Example: vqd status --json | jq '.workers[] | select(.state != \"streaming\")'");
    command->callback([&run] { run = status; });
}
