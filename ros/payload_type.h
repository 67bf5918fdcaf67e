// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// How Cyclone DDS is given messages that are in CDR already, so that a topic has the bytes of a recording and no second
// description of the same types. For writers only.
#pragma once

#include <cstdint>
#include <span>

#include <dds/ddsi/ddsi_serdata.h>

// A type of which Cyclone needs to know no more than its name. The first topic that is made of it takes it over.
ddsi_sertype* newPayloadType(const char* typeName);

// A copy of a message for dds_writecdr(), which takes it over. Null when there is no memory.
ddsi_serdata* newPayload(const ddsi_sertype* type, std::span<const uint8_t> cdr);
