// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The sockets of workers and their folder, when others are slow, stopped or at work there.
#include <atomic>
#include <cstdlib>
#include <thread>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "host/failure.h"
#include "support/temporary_folder.h"
#include "worker/local_socket.h"
#include "worker/status.h"

namespace
{

class WorkerSockets : public testing::Test
{
protected:
    WorkerSockets() { setenv("VQD_RUNTIME_DIR", m_folder.c_str(), 1); }

    Descriptor bound(const std::filesystem::path& path) const
    {
        Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.native().copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        return socket;
    }
    Descriptor lockedFolder() const
    {
        Descriptor folder(open(m_folder.c_str(), O_RDONLY | O_CLOEXEC));
        EXPECT_EQ(flock(folder, LOCK_EX), 0);
        return folder;
    }

    const TemporaryFolder m_temporary;
    const std::filesystem::path m_folder = m_temporary.path();
};

// A worker that starts has locked the folder, and its socket has a name before it listens.
TEST_F(WorkerSockets, OnlyStaleOnesAreRemovedByWhoAsksForTheState)
{
    const Descriptor socket = bound(m_folder / "1.status");
    {
        const Descriptor starting = lockedFolder();
        EXPECT_EQ(machineStatus()["workers"].size(), 0u);
        EXPECT_TRUE(std::filesystem::exists(m_folder / "1.status"));
    }
    EXPECT_EQ(machineStatus()["workers"].size(), 0u);
    EXPECT_FALSE(std::filesystem::exists(m_folder / "1.status"));
}

TEST_F(WorkerSockets, AWorkerThatTricklesItsStateIsNotWaitedForUntilItEnds)
{
    const Descriptor socket = bound(m_folder / "1.status");
    ASSERT_EQ(listen(socket, 1), 0);
    std::atomic<bool> ends = false;
    std::thread trickling([&] {
        const Descriptor asking(accept(socket, nullptr, nullptr));
        while (!ends) {
            (void)!send(asking, " ", 1, MSG_NOSIGNAL);
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
    });
    EXPECT_EQ(machineStatus()["workers"][0]["state"], "unknown");
    ends = true;
    trickling.join();
}

TEST_F(WorkerSockets, AFolderThatSomebodyKeepsLockedIsAFailure)
{
    const Descriptor lock = lockedFolder();
    EXPECT_THROW(ListeningSocket(m_folder / "a.sock"), Failure);
}

// Files of the user nobody, who is in no group of the cameras, cannot be given to that group.
TEST_F(WorkerSockets, AreForTheirUserAloneWhoeverIsInHisGroup)
{
    constexpr uid_t kNobody = 65534;
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can be another user";
    ASSERT_EQ(chown(m_folder.c_str(), kNobody, kNobody), 0);
    const gid_t group = getegid();
    ASSERT_EQ(setegid(kNobody), 0);
    ASSERT_EQ(seteuid(kNobody), 0);
    {
        const ListeningSocket socket(m_folder / "a.sock");
        EXPECT_EQ(std::filesystem::status(m_folder / "a.sock").permissions(), std::filesystem::perms(0600));
    }
    ASSERT_EQ(seteuid(0), 0);
    ASSERT_EQ(setegid(group), 0);
}

} // namespace
