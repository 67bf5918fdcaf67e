// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
#include "serve/text_reader.h"

#include <cerrno>
#include <unistd.h>

#include "host/failure.h"

std::optional<std::string> TextReader::take()
{
    constexpr size_t kMost = 1 << 20;
    char part[16384];
    while (m_text.size() <= kMost) {
        const ssize_t came = read(m_from, part, sizeof part);
        if (came > 0)
            m_text.append(part, static_cast<size_t>(came));
        else if (came < 0 && (errno == EAGAIN || errno == EINTR))
            return std::nullopt;
        else
            return std::move(m_text);
    }
    throw Failure(kFailed, "more than 1 MiB was sent where a short text was expected");
}
