// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A camera's process as its supervisor sees it: started, listened to, and ended.
#pragma once

#include <chrono>
#include <functional>
#include <sys/types.h>

#include "host/json.h"

#include "worker/child.h"
#include "worker/local_socket.h"
#include "worker/messages.h"

class ChildProcess
{
public:
    // Starts it with the listening socket. Fails when that is not possible.
    ChildProcess(const ChildOptions& options, int listening);
    ~ChildProcess(); // ends it, if it still runs
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    pid_t process() const { return m_process; }
    int link() const { return m_link; }

    // Takes what it has said. When it will say no more, it is about to end, and link() is -1.
    void listen(const std::function<void(uint16_t kind, const Json& json)>& heard);

    // How it has ended, as waitpid() tells; nothing while it runs.
    std::optional<int> ended();

    // Asks it to end, and makes it end when it takes longer than anybody should wait.
    void end();
    void kill(); // at once

private:
    bool endsWithin(std::chrono::milliseconds time);

    pid_t m_process = 0; // 0 when it has ended
    Descriptor m_link;
    MessageReader m_reader{VQD_WIRE_MOST_MESSAGE};
};
