// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The wall clock and the waits of the camera protocol; nothing else in the library tells or spends time.
#pragma once

#include <cstdint>

// Milliseconds since 1970, truncated.
int64_t NowMs();

// Waits in full, also when signals interrupt it. Below one second.
void SleepUs(unsigned microseconds);

// One second, in full as well: the pause of a read whose re-open is refused.
void SleepOneSecond();
