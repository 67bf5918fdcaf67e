// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Buffers for frames, used again and again: a new one of this size would cost the kernel a page fault every 4 KiB.
#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include "host/bytes.h"

class BodyPool
{
public:
    // An empty buffer. It comes back when its last user, of whichever thread, lets go of it; the pool may be gone then.
    std::shared_ptr<Bytes> take()
    {
        std::unique_ptr<Bytes> bytes;
        {
            const std::lock_guard lock(m_free->mutex);
            if (!m_free->bodies.empty()) {
                bytes = std::move(m_free->bodies.back());
                m_free->bodies.pop_back();
            }
        }
        if (!bytes)
            bytes = std::make_unique<Bytes>();
        return {bytes.release(), [free = m_free](Bytes* used) {
                    used->clear();
                    const std::lock_guard lock(free->mutex);
                    free->bodies.emplace_back(used);
                }};
    }

private:
    struct Free {
        std::mutex mutex;
        std::vector<std::unique_ptr<Bytes>> bodies;
    };
    std::shared_ptr<Free> m_free = std::make_shared<Free>();
};
