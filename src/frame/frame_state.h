// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The globals of the frame area that are not exported.
#pragma once

#include "frame/resample.h"

extern uint16_t m_nWorkspace[kWorkspace];
extern bool m_bStarted[VQD_MAX_DEVICES];
extern bool m_bStarted_RGB[VQD_MAX_DEVICES];
