// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The file behind a device node. A client polls it for "a transfer can be reaped", so it is a FIFO that is kept full
// and drained while one can: a plain file is always ready, and its clients would spin.
#pragma once

#include <string>

namespace sim
{

class DeviceNode
{
public:
    explicit DeviceNode(const std::string& path); // the folders on the way are made
    ~DeviceNode();
    DeviceNode(const DeviceNode&) = delete;
    DeviceNode& operator=(const DeviceNode&) = delete;

    void setReady(bool ready);
    void unlink();

private:
    std::string m_path;
    int m_fd = -1;
    bool m_ready = true; // an empty FIFO
};

} // namespace sim
