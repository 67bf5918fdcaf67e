# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""python3 -m vqd.calibrate"""
import sys

from . import main

sys.exit(main())
