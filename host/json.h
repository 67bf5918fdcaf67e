// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// JSON whose members stay in the order in which they were added, so that people can read it.
#pragma once

#include <nlohmann/json.hpp>

using Json = nlohmann::ordered_json;
