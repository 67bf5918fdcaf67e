// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Model designators and their traits.
#include "device/base/models.h"

#include <cstring>

#include "VQD_API.h"

enum Trait : unsigned { kHostCorrected = 1, kRs = 2, kHt = 4, kFlagged = 8 };

static const struct {
    const char* designator;
    unsigned traits;
} kModels[] = {
    {"VQD-HT120", kHostCorrected | kHt | kFlagged},
    {"VQD-HT950X", kHostCorrected | kFlagged}, // takes any frequency, unlike the HT family
    {"VQD-HT110", kHt},
    {"VQD-RS120", kRs | kFlagged},
    {"VQD-RS110", kRs},
    {"VQD-WN120", kFlagged},
};

static bool nameHas(const char* name, size_t length, unsigned trait)
{
    for (const auto& model : kModels)
        if ((model.traits & trait) && memmem(name, length, model.designator, strlen(model.designator)))
            return true;
    return false;
}

// Applications may write the table of identities too, so the search stays inside the field.
static bool has(int n, unsigned trait)
{
    const char* name = m_stDevInfo[n].szDeviceName;
    return nameHas(name, strnlen(name, sizeof m_stDevInfo[n].szDeviceName), trait);
}

bool IsHostCorrectedProduct(const char* product)
{
    return nameHas(product, strlen(product), kHostCorrected);
}

bool IsHostCorrected(int n)
{
    return has(n, kHostCorrected);
}

bool IsRsFamily(int n)
{
    return has(n, kRs);
}

bool IsHtFamily(int n)
{
    return has(n, kHt);
}

int ModelFlag(int n)
{
    return has(n, kFlagged);
}
