// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The same program runs again, in another mode and with two descriptors at fixed numbers.
#include "worker/child_process.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "host/documents.h"

namespace
{

[[noreturn]] void fail(const char* what, int error)
{
    throw Failure(kFailed, std::string(what) + ": " + strerror(error));
}

// By its name rather than as /proc/self/exe, so that the process has the same name as this one.
std::string thisProgram()
{
    char path[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof path - 1);
    const std::string name(path, static_cast<size_t>(std::max<ssize_t>(length, 0)));
    return access(name.c_str(), X_OK) == 0 ? name : "/proc/self/exe"; // it was replaced meanwhile
}

// A duplicate that is not in the way of the two fixed numbers.
Descriptor outOfTheWay(int descriptor)
{
    return Descriptor(fcntl(descriptor, F_DUPFD_CLOEXEC, kListeningDescriptor + 1));
}

pid_t spawn(const std::vector<std::string>& words, int link, int listening)
{
    std::vector<char*> arguments;
    for (const std::string& word : words)
        arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, link, kLinkDescriptor);
    posix_spawn_file_actions_adddup2(&actions, listening, kListeningDescriptor);
    posix_spawnattr_t attributes;
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
    posix_spawnattr_setsigmask(&attributes, &none);
    pid_t process = 0;
    const int error = posix_spawn(&process, thisProgram().c_str(), &actions, &attributes, arguments.data(), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0)
        fail("the camera's process does not start", error);
    return process;
}

} // namespace

ChildProcess::ChildProcess(const ChildOptions& options, int listening)
{
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
        fail("socketpair", errno);
    m_link = Descriptor(ends[0]);
    const Descriptor theirs(ends[1]);
    std::vector<std::string> words{"vqd", "worker", "--child"};
    if (!options.camera.empty())
        words.insert(words.end(), {"-c", options.camera});
    if (!options.profile)
        words.emplace_back("--no-profile");
    if (!options.recordings.empty())
        words.insert(words.end(),
                     {"--recordings", options.recordings, "--keep-free", std::to_string(options.keepFree)});
    for (const std::string& setting : options.settings)
        words.insert(words.end(), {"-s", setting});
    m_process = spawn(words, outOfTheWay(theirs), outOfTheWay(listening));
}

ChildProcess::~ChildProcess()
{
    end();
}

void ChildProcess::listen(const std::function<void(uint16_t kind, const Json& json)>& heard)
{
    while (m_link >= 0) {
        const std::span<uint8_t> space = m_reader.space();
        const ssize_t came = recv(m_link, space.data(), space.size(), MSG_DONTWAIT);
        if (came < 0 && (errno == EAGAIN || errno == EINTR))
            return;
        if (came <= 0) {
            m_link = Descriptor();
            return;
        }
        m_reader.came(static_cast<size_t>(came));
        while (const std::optional<Received> message = m_reader.next())
            heard(message->prefix.kind, parsedObject(message->text(), "the camera's process"));
    }
}

std::optional<int> ChildProcess::ended()
{
    int status = 0;
    if (m_process == 0 || waitpid(m_process, &status, WNOHANG) != m_process)
        return std::nullopt;
    m_process = 0;
    return status;
}

void ChildProcess::end()
{
    constexpr std::chrono::milliseconds kGrace{2500}, kAfterKill{300};
    if (m_process == 0)
        return;
    ::kill(m_process, SIGTERM);
    if (endsWithin(kGrace))
        return;
    kill();
    endsWithin(kAfterKill); // one that waits in the kernel for a device ends when that lets it go
}

void ChildProcess::kill()
{
    if (m_process != 0)
        ::kill(m_process, SIGKILL);
}

bool ChildProcess::endsWithin(std::chrono::milliseconds time)
{
    using Clock = std::chrono::steady_clock;
    for (const auto end = Clock::now() + time; Clock::now() < end;) {
        if (ended())
            return true;
        listen([](uint16_t, const Json&) {}); // so that it need not wait for us
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}
