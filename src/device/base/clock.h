// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The wall clock and the waits of the camera protocol. Nothing else in the library reads the time or waits.
#pragma once

#include <cstdint>

// Milliseconds since 1970, truncated.
int64_t NowMs();

// Waits in full, even if signals interrupt the wait. `microseconds` is less than a second.
void SleepUs(unsigned microseconds);

// Waits for one second, in full as well: the pause of a read whose re-open is refused.
void SleepOneSecond();
