// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// An empty file for each serial number, whose time stamp is that of the last write. Its lock is the turn. Where no file
// is possible, as in a service without a home, the process keeps the time itself.
#include "host/save_pause.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <ctime>
#include <map>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/formatted.h"
#include "host/state_folder.h"

namespace
{

std::map<std::string, double>& ownTimes()
{
    static std::map<std::string, double> times; // by serial number
    return times;
}

double seconds(const timespec& time)
{
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

double now()
{
    timespec time{};
    clock_gettime(CLOCK_REALTIME, &time); // as the file system does
    return seconds(time);
}

int openFile(const std::string& serial)
{
    const std::filesystem::path folder = stateFolder();
    std::error_code error;
    if (folder.empty() || (std::filesystem::create_directories(folder, error), error))
        return -1;
    return open((folder / ("saved-" + serial)).c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
}

// A file that this opening has made is no older write.
bool isNew(const struct stat& file)
{
    return file.st_size == 0;
}

} // namespace

SavedTooSoon::SavedTooSoon(const std::string& serial, double left)
    : Failure(kFailed,
              formatted("the EEPROM of camera %s was written %.0f s ago and wears out with writes; the next save is "
                        "possible in %.0f s",
                        serial.c_str(), kSavePauseSeconds - left, left)),
      left(left)
{
}

SaveTurn::SaveTurn(const std::string& serial, TooSoon tooSoon) : m_serial(serial), m_file(openFile(serial))
{
    if (m_file >= 0 && flock(m_file, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
        close(m_file);
        throw Failure(kFailed, "another program is just writing to the EEPROM of camera " + serial);
    }
    double last = 0;
    struct stat file {
    };
    if (m_file >= 0 && fstat(m_file, &file) == 0 && !isNew(file))
        last = seconds(file.st_mtim);
    if (const auto own = ownTimes().find(serial); own != ownTimes().end())
        last = std::max(last, own->second);
    // A clock that was set back leaves a last write in the future, which must not lock the camera for so long.
    const double passed = now() - last;
    if (tooSoon == TooSoon::refuse && std::abs(passed) < kSavePauseSeconds) {
        if (m_file >= 0)
            close(m_file);
        throw SavedTooSoon(serial, kSavePauseSeconds - std::max(passed, 0.0));
    }
}

SaveTurn::~SaveTurn()
{
    if (m_file >= 0)
        close(m_file); // and gives the lock back
}

void SaveTurn::saved() const
{
    ownTimes()[m_serial] = now();
    if (m_file >= 0 && pwrite(m_file, "\n", 1, 0) == 1)
        futimens(m_file, nullptr);
}
