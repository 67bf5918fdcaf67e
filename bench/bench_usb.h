// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// The frame read through the real libusb, against the bare transfer and the pipeline; then what cameras at 30 frames
// per second cost. Says so and returns where there is no virtual bus.
void CompareUsb();
