// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The JSON of events and of refused requests, which several parts of a worker make.
#pragma once

#include <exception>

#include "host/documents.h"
#include "host/failure.h"
#include "host/host_time.h"

// What happened to the worker or its camera, now: "lost", "reopened", "clock-step", ...
inline Json eventOf(const char* what)
{
    const HostTime now = hostTime();
    Json json = document("event");
    json["event"] = what;
    json["real-time-ns"] = now.real;
    json["monotonic-time-ns"] = now.monotonic;
    return json;
}

// Its sentence; what stands below that is for a terminal.
inline Json refusal(const std::exception& why)
{
    const auto* const failure = dynamic_cast<const Failure*>(&why);
    const std::string text = why.what();
    return {{"ok", false},
            {"error", text.substr(0, text.find('\n'))},
            {"code", failure != nullptr ? failure->code : kFailed}};
}
