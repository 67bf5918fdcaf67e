// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Locks of cameras between processes, in a folder where other users may put anything.
#include <csignal>
#include <cstdlib>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "host/camera_lock.h"
#include "support/temporary_folder.h"

namespace
{

class CameraLock : public testing::Test
{
protected:
    CameraLock() { setenv("UMOCKDEV_DIR", m_folder.c_str(), 1); }

    const TemporaryFolder m_temporary;
    const std::filesystem::path m_folder = m_temporary.path();
    const Place m_place{1, 2, "1-2.3"};
};

TEST_F(CameraLock, ShowsItsHolderUntilThatEnds)
{
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t other = fork();
    if (other == 0) {
        nameLockHolder("vqd other");
        const char locked = lockCamera(m_place) ? 'y' : 'n';
        _exit(write(ready[1], &locked, 1) == 1 ? pause() : 1);
    }
    char locked = 0;
    ASSERT_EQ(read(ready[0], &locked, 1), 1);
    EXPECT_EQ(locked, 'y');
    EXPECT_FALSE(lockCamera(m_place));
    const std::optional<Holder> holder = lockHolder(m_place);
    ASSERT_TRUE(holder);
    EXPECT_EQ(holder->process, other);
    EXPECT_EQ(holder->name, "vqd other");
    EXPECT_FALSE(lockHolder({1, 2, "1-2.4"}));
    kill(other, SIGKILL);
    waitpid(other, nullptr, 0);
    EXPECT_FALSE(lockHolder(m_place));
    EXPECT_TRUE(lockCamera(m_place));
}

// Opening a FIFO waits for somebody who writes to it.
TEST_F(CameraLock, DoesNotWaitForWhatIsNoFile)
{
    ASSERT_EQ(mkfifo((m_folder / "vqd-1-2.3.lock").c_str(), 0666), 0);
    alarm(60);
    EXPECT_FALSE(lockHolder(m_place));
    EXPECT_TRUE(lockCamera(m_place)); // the kernel's claim is left
    alarm(0);
}

} // namespace
