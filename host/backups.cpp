// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Names of backup files, and which of them stay.
#include "host/backups.h"

#include <algorithm>
#include <ctime>
#include <vector>

#include "host/state_folder.h"
#include "host/whole_files.h"

namespace
{

std::filesystem::path backupDirectory()
{
    std::filesystem::path folder = stateFolder();
    if (folder.empty())
        throw Failure(kFailed, "there is no home folder for a backup; XDG_STATE_HOME names another place");
    return folder;
}

void requireBackupDirectory(const std::filesystem::path& directory)
{
    try {
        requireWritableDirectory(directory);
    } catch (const Failure& failure) {
        throw Failure(failure.code, std::string("no backup is possible, so nothing is written: ") + failure.what() +
                                        " (XDG_STATE_HOME names another place)");
    }
}

// Files with other names are the user's own. The first backup of a camera stays for ever, since it may be the only one
// from before all changes.
void prune(const std::filesystem::path& directory, const std::string& start)
{
    constexpr size_t kMost = 20;
    std::vector<std::pair<std::filesystem::file_time_type, std::filesystem::path>> files;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(directory, error)) {
        const std::string name = entry.path().filename();
        if (name.starts_with(start) && name.find_first_not_of("0123456789-", start.size()) == name.size() - 4)
            files.emplace_back(entry.last_write_time(error), entry.path());
    }
    std::sort(files.begin(), files.end());
    for (size_t i = 1; i + kMost <= files.size(); ++i)
        std::filesystem::remove(files[i].second, error);
}

} // namespace

std::filesystem::path backUp(const std::string& what, const std::string& serial, std::span<const uint8_t> bytes)
{
    const std::filesystem::path directory = backupDirectory();
    requireBackupDirectory(directory);
    const time_t now = time(nullptr);
    char when[32];
    strftime(when, sizeof when, "%Y%m%d-%H%M%S", gmtime(&now));
    const std::string start = what + "-" + serial + "-", name = start + when;
    std::filesystem::path path = directory / (name + ".bin");
    for (int i = 2; std::filesystem::exists(path); ++i)
        path = directory / (name + "-" + std::to_string(i) + ".bin");
    writeFile(path, bytes, Existing::refuse);
    prune(directory, start);
    return path;
}
