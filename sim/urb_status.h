// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// How the kernel says that a transfer (URB) has ended.
#pragma once

#include <cerrno>

#include "wire.h"

namespace sim
{

// Of a transfer that has ended; the others go on.
inline int urbStatus(Status status)
{
    switch (status) {
    case Status::stall:
        return -EPIPE;
    case Status::overflow:
        return -EOVERFLOW;
    case Status::ioError:
        return -EPROTO;
    case Status::noMemory:
        return -ENOMEM;
    default:
        return 0;
    }
}

} // namespace sim
