// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
#include "recording/part_file.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include "host/failure.h"
#include "host/formatted.h"

namespace
{

[[noreturn]] void fail(const std::filesystem::path& path, int error)
{
    throw Failure(kFailed, path.string() + ": " + strerror(error));
}

bool exists(int folder, const std::string& name)
{
    struct stat found {
    };
    return fstatat(folder, name.c_str(), &found, AT_SYMLINK_NOFOLLOW) == 0;
}

} // namespace

void requireRecordingName(const std::string& name)
{
    constexpr size_t kMost = 100;
    const auto isPlain = [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
    };
    const auto isAllowed = [&](char c) { return isPlain(c) || c == '.' || c == '_' || c == '-'; };
    if (name.empty() || name.size() > kMost || !isPlain(name[0]) || !std::ranges::all_of(name, isAllowed))
        throw Failure(kUsage,
                      formatted("the name of a recording has 1 to %zu letters, digits and . _ -, and begins with "
                                "a letter or a digit",
                                kMost));
}

std::string partFileName(const std::string& name, int part)
{
    return name + (part == 1 ? "" : formatted("_%03d", part)) + ".mcap";
}

PartFile::PartFile(const std::filesystem::path& folder, const std::string& fileName, const std::string& extension)
    : m_path(folder / fileName), m_name(fileName), m_partName(fileName + extension),
      m_folder(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC))
{
    if (m_folder < 0)
        fail(folder, errno);
    int error = exists(m_folder, m_name) ? EEXIST : 0;
    if (error == 0)
        m_file = openat(m_folder, m_partName.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
    if (m_file >= 0)
        return;
    error = error != 0 ? error : errno;
    const bool isLeft = error == EEXIST && !exists(m_folder, m_name);
    close(m_folder);
    if (isLeft)
        throw Failure(kFailed,
                      m_path.string() + extension + " exists: a recording of this name has not ended, or was killed");
    if (error == EEXIST)
        throw Failure(kFailed, m_path.string() + " exists, and a recording replaces nothing");
    fail(m_path, error);
}

PartFile::~PartFile()
{
    close(m_file);
    close(m_folder);
}

uint64_t PartFile::bytesFree() const
{
    struct statvfs disk {
    };
    if (fstatvfs(m_file, &disk) != 0)
        fail(m_path, errno);
    return uint64_t{disk.f_bavail} * disk.f_frsize;
}

void PartFile::sync() const
{
    if (fdatasync(m_file) != 0 && errno != EINVAL) // some file systems cannot
        fail(m_path, errno);
}

// The link fails when somebody has taken the name meanwhile, which a rename on an old kernel or a network's file system
// would not.
void PartFile::keep() const
{
    sync();
    const bool renamed = renameat2(m_folder, m_partName.c_str(), m_folder, m_name.c_str(), RENAME_NOREPLACE) == 0;
    if (!renamed && errno == EINVAL && linkat(m_folder, m_partName.c_str(), m_folder, m_name.c_str(), 0) == 0)
        unlinkat(m_folder, m_partName.c_str(), 0);
    else if (!renamed)
        throw Failure(kFailed, (m_path.parent_path() / m_partName).string() +
                                   " is complete, but does not get its name: " + strerror(errno));
    fsync(m_folder);
}

void PartFile::remove() const
{
    unlinkat(m_folder, m_partName.c_str(), 0);
}
