// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The operations that a writer of a type without a key needs. Those of readers are missing: this process has none.
#include "ros/payload_type.h"

#include <cstdio>
#include <cstring>
#include <new>
#include <vector>

#include <dds/ddsi/ddsi_keyhash.h>
#include <dds/ddsi/ddsi_sertype.h>

namespace
{

struct Payload : ddsi_serdata {
    std::vector<uint8_t> bytes; // padded to whole words, as they are sent
    uint32_t size = 0;          // without the padding
};

const Payload& of(const ddsi_serdata* data)
{
    return *static_cast<const Payload*>(data);
}

bool sameKey(const ddsi_serdata*, const ddsi_serdata*)
{
    return true;
}

uint32_t sizeOf(const ddsi_serdata* data)
{
    return of(data).size;
}

void copyOut(const ddsi_serdata* data, size_t offset, size_t size, void* into)
{
    memcpy(into, of(data).bytes.data() + offset, size);
}

ddsi_serdata* lend(const ddsi_serdata* data, size_t offset, size_t size, ddsrt_iovec_t* part)
{
    part->iov_base = const_cast<uint8_t*>(of(data).bytes.data()) + offset;
    part->iov_len = static_cast<ddsrt_iov_len_t>(size);
    return ddsi_serdata_ref(data);
}

void takeBack(ddsi_serdata* data, const ddsrt_iovec_t*)
{
    ddsi_serdata_unref(data);
}

// The key of a type that has none.
ddsi_serdata* toKey(const ddsi_serdata* data)
{
    auto* const key = new (std::nothrow) Payload;
    if (key == nullptr)
        return nullptr;
    ddsi_serdata_init(key, data->type, SDK_KEY);
    key->type = nullptr;
    return key;
}

void freePayload(ddsi_serdata* data)
{
    delete static_cast<Payload*>(data);
}

size_t print(const ddsi_sertype*, const ddsi_serdata* data, char* into, size_t size)
{
    return static_cast<size_t>(snprintf(into, size, "%u bytes", of(data).size));
}

void keyHash(const ddsi_serdata*, ddsi_keyhash* hash, bool)
{
    *hash = {};
}

constexpr ddsi_serdata_ops payloadOperations()
{
    ddsi_serdata_ops operations{};
    operations.eqkey = sameKey;
    operations.get_size = sizeOf;
    operations.to_ser = copyOut;
    operations.to_ser_ref = lend;
    operations.to_ser_unref = takeBack;
    operations.to_untyped = toKey;
    operations.free = freePayload;
    operations.print = print;
    operations.get_keyhash = keyHash;
    return operations;
}

constexpr ddsi_serdata_ops kPayloadOperations = payloadOperations();

void freeType(ddsi_sertype* type)
{
    ddsi_sertype_fini(type);
    delete type;
}

// Types of one name are one type.
bool sameType(const ddsi_sertype*, const ddsi_sertype*)
{
    return true;
}

uint32_t typeHash(const ddsi_sertype*)
{
    return 0;
}

constexpr ddsi_sertype_ops typeOperations()
{
    ddsi_sertype_ops operations{};
    operations.version = ddsi_sertype_v0;
    operations.free = freeType;
    operations.equal = sameType;
    operations.hash = typeHash;
    return operations;
}

constexpr ddsi_sertype_ops kTypeOperations = typeOperations();

} // namespace

ddsi_sertype* newPayloadType(const char* typeName)
{
    auto* const type = new ddsi_sertype{};
    ddsi_sertype_init(type, typeName, &kTypeOperations, &kPayloadOperations, true);
    type->allowed_data_representation = DDS_DATA_REPRESENTATION_FLAG_XCDR1;
    return type;
}

ddsi_serdata* newPayload(const ddsi_sertype* type, std::span<const uint8_t> cdr)
{
    constexpr size_t kWord = 4;
    try {
        auto* const payload = new Payload;
        ddsi_serdata_init(payload, type, SDK_DATA);
        payload->size = static_cast<uint32_t>(cdr.size());
        payload->bytes.reserve((cdr.size() + kWord - 1) / kWord * kWord);
        payload->bytes.assign(cdr.begin(), cdr.end());
        payload->bytes.resize((cdr.size() + kWord - 1) / kWord * kWord);
        return payload;
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}
