// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The globals of the geometry area.
#include "VQD_API.h"

// Written by setters and load. The map builder reads the depth lens, the application the rest.
float m_fIntrinsicParam[VQD_MAX_DEVICES][4];    // depth lens, pixels
float m_fDistorParam[VQD_MAX_DEVICES][6];       // depth lens
float m_fRGBIntrinsicParam[VQD_MAX_DEVICES][4]; // colour lens, pixels
float m_fRGBDistorParam[VQD_MAX_DEVICES][6];    // colour lens
float m_fExtrinsicParam[VQD_MAX_DEVICES][12];   // depth to colour

// Written by the map builder, read for each frame.
float m_fXp2[VQD_PIXELS];   // raw column of each pixel
float m_fYp2[VQD_PIXELS];   // raw row of each pixel
float fDist_x2[VQD_PIXELS]; // fraction of the column, or the column again in mode 3
float fDist_y2[VQD_PIXELS]; // fraction of the row, or the row again in mode 3

// The map builder's last pixel, for the application.
float m_fX_nu;     // undistorted x, normalised
float m_fY_nu;     // undistorted y, normalised
float m_fRu2;      // squared radius
float m_fRadial_d; // radial factor
float m_fX_nd;     // distorted x, normalised
float m_fY_nd;     // distorted y, normalised

Point3f pPointCloud[VQD_PIXELS]; // metres for each millimetre of depth; written by load, read by the frame conversion

static_assert(sizeof(Point3f) == 12);
