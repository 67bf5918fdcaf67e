// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
#include "serve/token.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <grp.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/failure.h"
#include "worker/local_socket.h"

std::string newToken()
{
    uint8_t bytes[16];
    if (getrandom(bytes, sizeof bytes, 0) != sizeof bytes)
        throw Failure(kFailed, std::string("no random numbers: ") + strerror(errno));
    std::string text;
    for (const uint8_t byte : bytes)
        for (const int digit : {byte >> 4, byte & 15})
            text += "0123456789abcdef"[digit];
    return text;
}

// A new file, so that whoever has the old one open does not read this token, and nobody's link leads elsewhere.
TokenFile::TokenFile(std::filesystem::path path, const std::string& token) : m_path(std::move(path))
{
    unlink(m_path.c_str());
    const Descriptor file(open(m_path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600));
    const std::string line = token + '\n';
    if (file < 0 || write(file, line.data(), line.size()) != static_cast<ssize_t>(line.size()))
        throw Failure(kFailed, m_path.string() + ": " + strerror(errno));
    const group* const cameras = getgrnam("plugdev"); // may open the cameras, by the udev rules
    if (cameras != nullptr && fchown(file, static_cast<uid_t>(-1), cameras->gr_gid) == 0)
        fchmod(file, 0640); // else this user's alone
}

TokenFile::~TokenFile()
{
    unlink(m_path.c_str());
}
