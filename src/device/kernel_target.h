// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Pixel kernels are compiled once more for wide vector units and chosen when the library is loaded. The results are the
// same to the bit: no contraction, no reassociation.
#pragma once

// For static functions only: what the compiler makes of others it exports, hidden or not.
// The sanitizers' runtimes are not up yet when the loader chooses.
#if defined(__x86_64__) && !defined(__SANITIZE_ADDRESS__) && !defined(VQD_PLAIN_KERNELS)
#define VQD_KERNEL __attribute__((target_clones("avx512f", "avx2", "default")))
#else
#define VQD_KERNEL
#endif
