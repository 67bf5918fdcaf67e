// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A text that somebody sends whole and then closes, read without waiting: a worker's state from its socket, or what a
// child process prints.
#pragma once

#include <chrono>
#include <optional>
#include <poll.h>
#include <string>

#include "worker/local_socket.h"

class TextReader
{
public:
    explicit TextReader(Descriptor from) : m_from(std::move(from)) {}

    pollfd waiting() const { return {m_from, POLLIN, 0}; }

    // The text, when all of it has come. Fails when there is more than anybody should send.
    std::optional<std::string> take();

private:
    Descriptor m_from;
    std::string m_text;
};
