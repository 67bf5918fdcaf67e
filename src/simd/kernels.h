// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A kernel exists twice: in plain C++, as the reference, and in vectors. The library calls `kernels`.
#pragma once

namespace scalar
{
}
namespace simd
{
}

#ifdef VQD_SIMD
namespace kernels = simd;
#else
namespace kernels = scalar;
#endif
