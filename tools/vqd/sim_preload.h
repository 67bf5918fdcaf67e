// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The mocked bus needs umockdev's preload in the process that owns it.
#pragma once

// Runs this program again under the preload, with the arguments of main(), and returns in that process only.
void enterPreload(char** arguments);
