// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// See device_node.h.
#include "device_node.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace sim
{

static constexpr int kPipeBytes = 4096;

DeviceNode::DeviceNode(const std::string& path) : m_path(path)
{
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    if (mkfifo(path.c_str(), 0666) != 0)
        throw std::system_error(errno, std::generic_category(), path);
    m_fd = open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    if (m_fd < 0 || fcntl(m_fd, F_SETPIPE_SZ, kPipeBytes) < 0)
        throw std::system_error(errno, std::generic_category(), path);
    setReady(false);
}

DeviceNode::~DeviceNode()
{
    unlink();
    close(m_fd);
}

void DeviceNode::setReady(bool ready)
{
    if (ready == m_ready)
        return;
    m_ready = ready;
    std::array<char, kPipeBytes> bytes{};
    const ssize_t moved = ready ? read(m_fd, bytes.data(), bytes.size()) : write(m_fd, bytes.data(), bytes.size());
    if (moved < 0 && errno != EAGAIN)
        throw std::system_error(errno, std::generic_category(), m_path);
}

void DeviceNode::unlink()
{
    if (!m_path.empty())
        ::unlink(m_path.c_str());
    m_path.clear();
}

} // namespace sim
