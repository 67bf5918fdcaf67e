// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// SIGINT, SIGTERM and SIGHUP ask the tool to end in good order. A second one ends it at once.
#pragma once

void catchInterrupts();

bool interrupted();

// Sets what a second signal does before it ends the process; null: nothing. It may only do what a signal handler may.
void onForcedEnd(void (*last)());

// Ends the present work with a Failure when a signal has come. To be called between steps.
void endIfInterrupted();
