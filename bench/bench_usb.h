// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Compares the frame read through the real libusb with the bare transfer and the pipeline, and then measures what
// cameras at 30 frames per second cost. Where there is no virtual bus, it prints that and returns.
void CompareUsb();
