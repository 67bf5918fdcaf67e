// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// SIGINT, SIGTERM and SIGHUP ask the tool to end in good order; a second one ends it at once.
#pragma once

void catchInterrupts();

bool interrupted();

// What a second signal, which ends the process at once, still does first; null: nothing. Only what a signal handler
// may.
void onForcedEnd(void (*last)());

// Ends the work under way, by a Failure, when a signal has come. To be called between steps.
void endIfInterrupted();
