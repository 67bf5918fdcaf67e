// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The globals of the geometry area.
#include "VQD_API.h"

float m_fIntrinsicParam[VQD_MAX_DEVICES]
                       [4];               // depth lens in pixels; written by setter and load, read by the map builder
float m_fDistorParam[VQD_MAX_DEVICES][6]; // depth lens; written by setter and load, read by the map builder
float m_fRGBIntrinsicParam[VQD_MAX_DEVICES][4]; // colour lens in pixels; written by setter and load, for applications
float m_fRGBDistorParam[VQD_MAX_DEVICES][6];    // colour lens; written by setter and load, for applications
float m_fExtrinsicParam[VQD_MAX_DEVICES][12];   // depth to colour; written by setter and load, for applications

float m_fXp2[VQD_PIXELS];   // raw column of each pixel; written by the map builder, read a frame
float m_fYp2[VQD_PIXELS];   // raw row of each pixel; written by the map builder, read a frame
float fDist_x2[VQD_PIXELS]; // column fraction, or raw column in mode 3; written by the map builder, read a frame
float fDist_y2[VQD_PIXELS]; // row fraction, or raw row in mode 3; written by the map builder, read a frame
float m_fX_nu;              // the map builder's last pixel: undistorted x, normalised
float m_fY_nu;              // the map builder's last pixel: undistorted y, normalised
float m_fRu2;               // the map builder's last pixel: squared radius
float m_fRadial_d;          // the map builder's last pixel: radial factor
float m_fX_nd;              // the map builder's last pixel: distorted x, normalised
float m_fY_nd;              // the map builder's last pixel: distorted y, normalised

Point3f pPointCloud[VQD_PIXELS]; // metres a millimetre of depth; written by the load, read by the frame conversion

static_assert(sizeof(Point3f) == 12);
