// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Whether the messages of a recording are what its recorder writes.
#pragma once

#include "recording/mcap_reader.h"

class MessageCheck
{
public:
    // To be given all messages in their order. Fails when something is wrong with this one. Messages of types that no
    // recorder writes are not looked into.
    void look(const mcap::Channel& channel, const mcap::Message& message);

private:
    uint64_t m_time = 0;                         // of the message before
    std::map<std::string, uint64_t> m_sequences; // of frames, by topic
};
