// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// All workers and cameras of the machine, as far as this user may see them.
#pragma once

#include "host/json.h"

// Schema vqd.status/1: "workers", each as it answers, and "cameras", each with who has it.
Json machineStatus();
