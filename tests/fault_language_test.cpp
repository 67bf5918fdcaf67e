// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Fault plans as text: what their lines mean, and where errors point.
#include <gtest/gtest.h>

#include "fault_language.h"

using namespace sim;

namespace
{

using Kind = Fault::Kind;

bool same(const Fault& a, const Fault& b)
{
    return a.kind == b.kind && a.channel == b.channel && a.request == b.request && a.nth == b.nth &&
           a.times == b.times && a.bytes == b.bytes && a.backAfter == b.backAfter && a.afterFrames == b.afterFrames;
}

TEST(FaultLanguage, LinesMeanWhatTheySay)
{
    const struct {
        const char* line;
        Fault fault;
    } cases[] = {
        {"third bulk IN stalls", {.channel = Channel::bulkIn, .nth = 3}},
        {"unplug after frame 40, back after 350ms",
         {.kind = Kind::unplug, .channel = Channel::any, .backAfter = 350'000, .afterFrames = 40}},
        {"12th frame has a bad start code, 2 times",
         {.kind = Kind::badStartCode, .channel = Channel::bulkIn, .nth = 12, .times = 2}},
        {"every EEPROM write refused", {.request = 0xB7, .times = 0}},
        {"answers 40 of 128 bytes", {.kind = Kind::shortened, .request = 0xB8, .bytes = 40}},
        {"frame is out of memory, 3 times", {.kind = Kind::noMemory, .channel = Channel::bulkIn, .times = 3}},
        {"silent for 0.5 s", {.kind = Kind::silence, .channel = Channel::any, .backAfter = 500'000}},
        {"timeout", {.kind = Kind::timeout, .channel = Channel::bulkIn}},
        {"request 0xB2 breaks", {.kind = Kind::ioError, .request = 0xB2}},
        {"image unplugs", {.kind = Kind::unplug, .channel = Channel::bulkOut}},
    };
    std::string all;
    for (const auto& c : cases) {
        const auto plan = parseFaultPlan(c.line, 1);
        ASSERT_EQ(plan.size(), 1u) << c.line;
        EXPECT_TRUE(same(plan[0].fault, c.fault)) << c.line;
        EXPECT_EQ(plan[0].camera, 0u);
        all += std::string("\n3: ") + c.line + " # why\n;";
    }
    const auto plan = parseFaultPlan(all, 3);
    ASSERT_EQ(plan.size(), std::size(cases));
    for (size_t i = 0; i < plan.size(); ++i)
        EXPECT_TRUE(plan[i].camera == 3 && same(plan[i].fault, cases[i].fault)) << cases[i].line;
}

// Errors point with a "^" under the character.
TEST(FaultLanguage, ErrorsPointAtTheCharacter)
{
    const std::string cases[] = {
        "third bulk IN stals\n              ^",
        "4: stalls\n^",
        "0: stalls\n^",
        "stalls; unplug after 40\n               ^",
        "unplug, back after 3 h\n                     ^",
        "silent for 2\n            ^",
        "EEPROM read has a bad start code\n                  ^",
        "answers 200 of 128 bytes\n        ^",
        "5 frame stalls\n  ^",
        "third stalls\n      ^",
        "request 177 stalls\n        ^",
        "0th frame stalls\n^",
        "stalls, 1.5 times\n        ^",
        "stalls back after 1 s\n       ^",
        "unplug back after 1e9 s\n                   ^",
    };
    for (const std::string& both : cases) {
        const size_t end = both.find('\n');
        try {
            parseFaultPlan("\n" + both.substr(0, end) + "\nstalls", 3);
            ADD_FAILURE() << "taken: " << both;
        } catch (const FaultPlanError& error) {
            const std::string text = error.what();
            EXPECT_EQ(error.at, both.size() - end - 1) << both; // the line feed in front makes up for the caret itself
            EXPECT_EQ(text.substr(text.find('\n')), "\n    " + both.substr(0, end) + "\n    " + both.substr(end + 1));
        }
    }
}

} // namespace
