// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The globals of the calibration area.
#include "VQD_API.h"

int m_nEEPROMFPPNBuf[4800];           // mm, one for each 4 x 4 block; written by the load, read for each frame
double m_dOrthogonalData[VQD_PIXELS]; // depth factors; written by the load, read for each frame
