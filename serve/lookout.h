// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Which cameras and workers there are. Changes on the bus are seen in sysfs; the rest is found out by a process of its
// own, since the server must not wait for cameras, or load what touches them.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <poll.h>
#include <sys/types.h>

#include "host/bus_view.h"
#include "serve/camera.h"
#include "serve/roster.h"
#include "serve/text_reader.h"

struct Look {
    std::vector<SeenCamera> cameras;
    std::vector<FoundWorker> workers;
    std::string error; // why cameras that are attached are not in it; may be empty
};

// What the process prints, "vqd serve --look": {"cameras": [...], "error": ..., "workers": [...]}.
Json lookAround();

class Lookout
{
public:
    using Clock = std::chrono::steady_clock;

    ~Lookout();

    // Looks when something on the bus has changed, and when somebody misses a worker, but not all the time. Returns
    // what was seen, when that has come.
    std::optional<Look> look(Clock::time_point now, bool misses);

    void addTo(std::vector<pollfd>& waiting) const;

private:
    bool hasChanged(Clock::time_point now);
    void start(Clock::time_point now);
    void end();

    pid_t m_process = 0;
    std::optional<TextReader> m_text;
    std::vector<Place> m_places; // at the last look at the bus
    Clock::time_point m_nextGlance{}, m_notBefore{}, m_started{};
    bool m_isDue = true;
};
