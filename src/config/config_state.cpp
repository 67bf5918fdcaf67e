// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The globals of the configuration area.
#include "VQD_API.h"

CamParam stCamParam[VQD_MAX_DEVICES]; // images edited by setters and loads; decoded values written by getters
int m_bHorizontal;                    // horizontal flip set or read last on any camera, 0 or 1
int m_bVertical;                      // vertical flip set or read last on any camera, 0 or 1

// Written by setter, getter and load. A frame read looks at all but the last.
int m_nUndistortionMode; // 1 gated, 2 bilinear, 3 nearest, else copy
int m_bFPPN;             // on when 1
int m_bOrthogonal;       // on when 1
int m_bRemoveEdge;       // on when 1
int m_bRemoveMotionBlur; // on when 1; the camera does it
