// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The checklist of vqd selftest.
#pragma once

#include <span>
#include <string>

#include "selftest_bench.h"

enum class Result { pass, fail, skip };

struct Verdict {
    Result result;
    std::string text;
};

struct Check {
    const char* name;
    bool (*possible)(const Bench&); // otherwise the check is skipped
    Verdict (*run)(Bench&);
};

// In the order in which they must run.
std::span<const Check> selftestChecks();
