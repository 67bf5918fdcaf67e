// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What a camera's model can do, told from the designator in its product string.
#pragma once

// The host applies the FPPN and orthogonal corrections, the range clip and the edge removal; other models do so
// themselves.
bool IsHostCorrected(int n);
bool IsHostCorrectedProduct(const char* product); // of a camera that has no number

// Models that take 10 MHz only.
bool IsRsFamily(int n);

// Models that take 20 or 30 MHz.
bool IsHtFamily(int n);

// DevInfo::nModelFlag of the model.
int ModelFlag(int n);
