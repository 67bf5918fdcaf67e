// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Locked files, with the holder's number and name in them. They stay when the lock ends, since removing one that
// another process is about to lock would leave that one with a lock that nobody sees.
#include "host/camera_lock.h"

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <map>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/formatted.h"

namespace
{

std::string g_program;
std::map<std::string, int> g_held; // descriptors of locked files, by path

// A virtual bus has ports of the same names as the machine's, so its locks lie in its own folder.
std::string pathOf(const Place& place)
{
    const char* const virtualBus = getenv("UMOCKDEV_DIR");
    const std::string folder = virtualBus != nullptr ? virtualBus : "/run/lock";
    return folder + "/vqd-" + (place.port.empty() ? formatted("%03d-%03d", place.bus, place.address) : place.port) +
           ".lock";
}

// What another user may have put there instead of a file must not be waited for.
int openFile(const std::string& path, int flags, mode_t mode = 0)
{
    const int file = open(path.c_str(), flags | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, mode);
    struct stat found {
    };
    if (file < 0 || (fstat(file, &found) == 0 && S_ISREG(found.st_mode)))
        return file;
    close(file);
    errno = EINVAL;
    return -1;
}

// Opens the file that is there, for writing if this user may. Linux does not let anybody open another user's file in a
// folder like /run/lock in a way that could have created it, so creating is a step of its own.
int openLock(const std::string& path)
{
    constexpr mode_t kForAll = 0666;
    for (int i = 0; i < 2; ++i) {
        for (const int access : {O_RDWR, O_RDONLY})
            if (const int file = openFile(path, access); file >= 0)
                return file;
        if (errno != ENOENT)
            return -1;
        if (const int file = openFile(path, O_RDWR | O_CREAT | O_EXCL, kForAll); file >= 0) {
            fchmod(file, kForAll); // whatever the umask is
            return file;
        }
    }
    return -1;
}

void writeHolder(int file)
{
    const std::string program = g_program.empty() ? firstLine("/proc/self/comm") : g_program;
    const std::string text = std::to_string(getpid()) + ' ' + program + '\n';
    if (ftruncate(file, 0) == 0) // another user's file may be locked, but not written
        (void)!pwrite(file, text.data(), text.size(), 0);
}

} // namespace

void nameLockHolder(const std::string& program)
{
    g_program = program;
}

bool lockCamera(const Place& place)
{
    constexpr int kTries = 5; // whoever asks for the holder has the lock for a moment
    constexpr timespec kBetween{0, 10'000'000};
    const std::string path = pathOf(place);
    if (g_held.contains(path))
        return true;
    const int file = openLock(path);
    if (file < 0)
        return true;
    for (int i = 1; flock(file, LOCK_EX | LOCK_NB) != 0; ++i) {
        if (i == kTries || errno != EWOULDBLOCK) {
            const bool held = errno == EWOULDBLOCK;
            close(file);
            return !held;
        }
        nanosleep(&kBetween, nullptr);
    }
    writeHolder(file);
    g_held[path] = file;
    return true;
}

std::optional<Holder> lockHolder(const Place& place)
{
    const std::string path = pathOf(place);
    if (g_held.contains(path))
        return std::nullopt;
    const int file = openFile(path, O_RDONLY);
    const bool held = file >= 0 && flock(file, LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
    const std::string line = held ? firstLine("/proc/self/fd/" + std::to_string(file)) : "";
    if (file >= 0)
        close(file);
    if (!held)
        return std::nullopt;
    const size_t blank = line.find(' ');
    if (blank == std::string::npos)
        return Holder{0, "another program"};
    return Holder{atoi(line.c_str()), line.substr(blank + 1)};
}
