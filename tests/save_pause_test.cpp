// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The time between two writes to an EEPROM. What another program has written is a file here.
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <optional>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "host/save_pause.h"
#include "support/temporary_folder.h"

namespace
{

class SavePause : public testing::Test
{
protected:
    SavePause() { setenv("XDG_STATE_HOME", m_folder.c_str(), 1); }

    void writtenBefore(int seconds)
    {
        std::filesystem::create_directories(m_folder / "vqd");
        std::ofstream(m_folder / "vqd/saved-1") << '\n';
        const timespec times[2] = {{time(nullptr) - seconds, 0}, {time(nullptr) - seconds, 0}};
        ASSERT_EQ(utimensat(AT_FDCWD, (m_folder / "vqd/saved-1").c_str(), times, 0), 0);
    }

    // The seconds to wait; none when a save is possible.
    static std::optional<double> pauseOf(const char* serial, TooSoon tooSoon = TooSoon::refuse)
    {
        try {
            const SaveTurn turn(serial, tooSoon);
        } catch (const SavedTooSoon& soon) {
            return soon.left;
        }
        return {};
    }

    const TemporaryFolder m_temporary;
    const std::filesystem::path m_folder = m_temporary.path();
};

TEST_F(SavePause, HoldsFor10SecondsAfterAWriteOfAnyProgramUnlessForced)
{
    EXPECT_FALSE(pauseOf("1")); // a look is not a write
    EXPECT_FALSE(pauseOf("1"));
    writtenBefore(-5); // ahead, so that the machine may be slow
    const std::optional<double> pause = pauseOf("1");
    ASSERT_TRUE(pause);
    EXPECT_GT(*pause, 0);
    EXPECT_LE(*pause, 10);
    EXPECT_FALSE(pauseOf("1", TooSoon::save));
    EXPECT_FALSE(pauseOf("2"));
    writtenBefore(11);
    EXPECT_FALSE(pauseOf("1"));
    writtenBefore(-3600); // the clock was set back by an hour
    EXPECT_FALSE(pauseOf("1"));
}

TEST_F(SavePause, IsKeptByTheProcessWhereNoFileIsPossible)
{
    setenv("XDG_STATE_HOME", "/proc/nowhere", 1);
    SaveTurn("1", TooSoon::refuse).saved();
    EXPECT_TRUE(pauseOf("1"));
    EXPECT_FALSE(pauseOf("2"));
}

TEST_F(SavePause, GivesOneProgramTheTurn)
{
    {
        const SaveTurn other("1", TooSoon::refuse);
        EXPECT_THROW(SaveTurn("1", TooSoon::save), Failure);
        EXPECT_FALSE(pauseOf("2"));
    }
    SaveTurn("1", TooSoon::save).saved();
    EXPECT_TRUE(pauseOf("1")); // and the write is seen
}

} // namespace
