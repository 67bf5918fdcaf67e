// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A row of candidates, of which the first that can be used is taken.
#include "worker/runtime_folder.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

#include "host/failure.h"

namespace
{

constexpr char kSystem[] = "/run/vqd", kService[] = "/run/vqd/serve"; // of root, of the unit vqd-serve

std::string variable(const char* name)
{
    const char* const text = getenv(name);
    return text != nullptr ? text : "";
}

std::filesystem::path inTmp()
{
    return "/tmp/vqd-" + std::to_string(geteuid());
}

// In a folder that everybody may write to, somebody else may have been there first.
bool isOwn(const std::filesystem::path& folder)
{
    struct stat found {
    };
    return lstat(folder.c_str(), &found) == 0 && S_ISDIR(found.st_mode) && found.st_uid == geteuid() &&
           (found.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

bool isWritable(const std::filesystem::path& folder)
{
    return access(folder.c_str(), W_OK | X_OK) == 0;
}

} // namespace

std::filesystem::path runtimeFolder()
{
    if (const std::string named = variable("VQD_RUNTIME_DIR"); !named.empty()) {
        mkdir(named.c_str(), 0755);
        if (!isWritable(named))
            throw Failure(kFailed, named + " (VQD_RUNTIME_DIR): " + strerror(errno));
        return named;
    }
    if (geteuid() == 0)
        mkdir(kSystem, 0755);
    for (const char* const folder : {kSystem, kService})
        if (isWritable(folder))
            return folder;
    if (const std::string session = variable("XDG_RUNTIME_DIR"); !session.empty() && isWritable(session)) {
        const std::string folder = session + "/vqd";
        mkdir(folder.c_str(), 0700);
        if (isWritable(folder))
            return folder;
    }
    mkdir(inTmp().c_str(), 0700);
    if (!isOwn(inTmp()))
        throw Failure(kFailed, inTmp().string() + " is not a folder that only this user may change");
    return inTmp();
}

std::vector<std::filesystem::path> runtimeFolders()
{
    if (const std::string named = variable("VQD_RUNTIME_DIR"); !named.empty())
        return {named};
    std::vector<std::filesystem::path> folders{kSystem, kService};
    if (const std::string session = variable("XDG_RUNTIME_DIR"); !session.empty())
        folders.emplace_back(session + "/vqd");
    if (isOwn(inTmp()))
        folders.push_back(inTmp());
    return folders;
}
