// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Looking for a stale name, removing it and taking it is one step for all processes: the folder is locked meanwhile.
#include "worker/local_socket.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <grp.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>

#include "host/failure.h"

namespace
{

constexpr char kGroup[] = "plugdev"; // may open the cameras, by the udev rules

[[noreturn]] void fail(const std::filesystem::path& path, const std::string& why)
{
    throw Failure(kFailed, path.string() + ": " + why);
}

sockaddr_un addressOf(const std::filesystem::path& path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.native().size() >= sizeof address.sun_path)
        fail(path, "a socket's name has no more than " + std::to_string(sizeof address.sun_path - 1) + " bytes");
    path.native().copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
}

int newSocket()
{
    return socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
}

// The process that made the socket to which this is a connection.
pid_t makerOf(int connection)
{
    ucred peer{};
    socklen_t length = sizeof peer;
    getsockopt(connection, SOL_SOCKET, SO_PEERCRED, &peer, &length);
    return peer.pid;
}

std::filesystem::path folderOf(const std::filesystem::path& path)
{
    return path.has_parent_path() ? path.parent_path() : ".";
}

Descriptor openFolder(const std::filesystem::path& folder)
{
    return Descriptor(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

// Everybody who may read a folder may lock it, so nobody waits for that lock for long.
Descriptor lockFolder(const std::filesystem::path& folder)
{
    constexpr int kTries = 200;
    constexpr timespec kBetween{0, 10'000'000};
    Descriptor lock = openFolder(folder);
    if (lock < 0)
        fail(folder, strerror(errno));
    for (int i = 1; flock(lock, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK; ++i) {
        if (i == kTries)
            fail(folder, "another program has locked this folder, where a socket is to be made");
        nanosleep(&kBetween, nullptr);
    }
    return lock;
}

// Fails unless nobody has the name. A socket without a listener has lost its process; where that process is gone and
// somebody still listens, it is a camera's process that is about to follow it.
void freeName(const std::filesystem::path& path)
{
    struct stat found {
    };
    if (lstat(path.c_str(), &found) != 0)
        return;
    if (!S_ISSOCK(found.st_mode))
        fail(path, "exists and is not a socket");
    const std::optional<Descriptor> other = connectTo(path);
    const pid_t maker = other ? makerOf(*other) : 0;
    if (other && (kill(maker, 0) == 0 || errno != ESRCH))
        fail(path, "another worker (process " + std::to_string(maker) + ") has this socket");
    unlink(path.c_str());
}

} // namespace

Descriptor::~Descriptor()
{
    if (m_number >= 0)
        close(m_number);
}

Descriptor::Descriptor(Descriptor&& other) noexcept : m_number(std::exchange(other.m_number, -1)) {}

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept
{
    std::swap(m_number, other.m_number);
    return *this;
}

std::optional<Descriptor> connectTo(const std::filesystem::path& path)
{
    const sockaddr_un address = addressOf(path);
    Descriptor descriptor(newSocket());
    if (connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 || errno == EAGAIN)
        return descriptor; // EAGAIN: more wait to be accepted than may
    return std::nullopt;
}

void removeIfStale(const std::filesystem::path& path)
{
    const Descriptor lock = openFolder(folderOf(path));
    if (flock(lock, LOCK_EX | LOCK_NB) == 0 && !connectTo(path) && errno == ECONNREFUSED)
        unlink(path.c_str());
}

ListeningSocket::ListeningSocket(const std::filesystem::path& path) : m_path(path), m_descriptor(newSocket())
{
    constexpr int kMostWaiting = 16;
    const sockaddr_un address = addressOf(path);
    const Descriptor lock = lockFolder(folderOf(path));
    freeName(path);
    const mode_t before = umask(0117);
    const int bound = bind(m_descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    const int error = errno;
    umask(before);
    if (bound != 0)
        fail(path, strerror(error));
    const group* const cameras = getgrnam(kGroup);
    if (cameras == nullptr || chown(path.c_str(), static_cast<uid_t>(-1), cameras->gr_gid) != 0)
        chmod(path.c_str(), 0600); // the user's own group may be that of all users
    if (listen(m_descriptor, kMostWaiting) != 0)
        fail(path, strerror(errno));
}

ListeningSocket::~ListeningSocket()
{
    unlink(m_path.c_str());
}
