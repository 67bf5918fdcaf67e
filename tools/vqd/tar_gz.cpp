// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Packing with libarchive.
#include "tar_gz.h"

#include <ctime>
#include <memory>

#include <archive.h>
#include <archive_entry.h>

#include "host/failure.h"

static la_ssize_t append(struct archive*, void* bytes, const void* data, size_t size)
{
    const auto* first = static_cast<const uint8_t*>(data);
    auto& all = *static_cast<std::vector<uint8_t>*>(bytes);
    all.insert(all.end(), first, first + size);
    return static_cast<la_ssize_t>(size);
}

std::vector<uint8_t> tarGz(const std::vector<PackedFile>& files)
{
    std::vector<uint8_t> bytes;
    const std::unique_ptr<struct archive, int (*)(struct archive*)> writer(archive_write_new(), archive_write_free);
    const auto check = [&](la_ssize_t result) {
        if (result < ARCHIVE_OK)
            throw Failure(kFailed, std::string("the archive: ") + archive_error_string(writer.get()));
    };
    check(archive_write_add_filter_gzip(writer.get()));
    check(archive_write_set_format_ustar(writer.get()));
    check(archive_write_open(writer.get(), &bytes, nullptr, append, nullptr));
    for (const PackedFile& file : files) {
        const std::unique_ptr<archive_entry, void (*)(archive_entry*)> entry(archive_entry_new(), archive_entry_free);
        archive_entry_set_pathname(entry.get(), file.name.c_str());
        archive_entry_set_size(entry.get(), static_cast<la_int64_t>(file.content.size()));
        archive_entry_set_filetype(entry.get(), AE_IFREG);
        archive_entry_set_perm(entry.get(), 0644);
        archive_entry_set_mtime(entry.get(), time(nullptr), 0);
        check(archive_write_header(writer.get(), entry.get()));
        check(archive_write_data(writer.get(), file.content.data(), file.content.size()));
    }
    check(archive_write_close(writer.get()));
    return bytes;
}
