// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// SIGINT and SIGTERM ask the tool to end in good order; a second one ends it at once.
#pragma once

void catchInterrupts();

bool interrupted();

// Ends the work under way, by a Failure, when a signal has come. To be called between steps.
void endIfInterrupted();
