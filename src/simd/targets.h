// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What the vector kernels are built for. Include this before Highway.
//
// SVE is left out because its vectors have no size at compile time; NEON serves those machines. NEON of 32-bit Arm is
// left out because it takes denormals for zero.
#pragma once

#define VQD_NO_SVE (HWY_SVE | HWY_SVE2 | HWY_SVE_256 | HWY_SVE2_128)
#ifdef __arm__
#define HWY_DISABLED_TARGETS (VQD_NO_SVE | HWY_NEON)
#else
#define HWY_DISABLED_TARGETS VQD_NO_SVE
#endif

// False if Highway would only emulate vectors, because the reference is faster then.
#define VQD_HAS_VECTORS (HWY_TARGET != HWY_SCALAR && HWY_TARGET != HWY_EMU128)
