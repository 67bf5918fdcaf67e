// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What the vector kernels are built for. To be included before Highway.
//
// Left out: SVE, whose vectors have no size at compile time (NEON serves those machines), and NEON of 32-bit ARM, which
// takes denormals for zero.
#pragma once

#define VQD_NO_SVE (HWY_SVE | HWY_SVE2 | HWY_SVE_256 | HWY_SVE2_128)
#ifdef __arm__
#define HWY_DISABLED_TARGETS (VQD_NO_SVE | HWY_NEON)
#else
#define HWY_DISABLED_TARGETS VQD_NO_SVE
#endif

// False where Highway has a stand-in for vectors: the reference is faster there.
#define VQD_HAS_VECTORS (HWY_TARGET != HWY_SCALAR && HWY_TARGET != HWY_EMU128)
