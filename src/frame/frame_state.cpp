// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The globals of the frame area.
#include <cstddef>

#include "VQD_API.h"
#include "frame/frame_state.h"

static_assert(sizeof(FrameInfo) == 24 && offsetof(FrameInfo, nHeight) == 4 && offsetof(FrameInfo, nFrameCount) == 8 &&
              offsetof(FrameInfo, nTimeStamp) == 16);

FrameInfo m_pFrameInfo[VQD_MAX_DEVICES];    // depth streams; set up once, counted and stamped by the frame read
FrameInfo m_pRGBFrameInfo[VQD_MAX_DEVICES]; // colour streams; set up once, counted and stamped by the colour read
alignas(64) unsigned char buffers[VQD_FRAME_BYTES]; // the latest raw frame; the frame read's transfers land here
alignas(64) uint16_t m_nWorkspace[kWorkspace];      // workspace of resampling; nothing in it outlives a frame
int m_nReadingStop;                                 // 1 makes every frame read return 0; written by the application
int m_nRetriesCount;                                // failed transfers in a row; 0 between frame reads
int m_nTimeStampStartFlag;                          // 1 once a depth frame was stamped
int m_nTimeStampStartFlag_RGB;                      // 1 once a colour frame was stamped
bool m_bStarted[VQD_MAX_DEVICES];                   // a depth frame of this camera was stamped; its start time counts
bool m_bStarted_RGB[VQD_MAX_DEVICES];               // the same of its colour stream
double m_dTemperature[VQD_MAX_DEVICES];             // from the latest header, 0.0625 a count
uint16_t m_nLogicver[2][VQD_MAX_DEVICES];           // from the latest header: first number, second number
int64_t t_Begin;                                    // for the application
int64_t t_Stop;                                     // for the application
int64_t t_End;                                      // for the application
int64_t liFrequency;                                // for the application

int m_nRGBCamOpen[VQD_MAX_DEVICES];          // not 0 while the colour camera is open; written by the application
int m_nRGB_WIDTH;                            // for the application
int m_nRGB_HEIGHT;                           // for the application
unsigned char m_nRGBCAM_No[VQD_MAX_DEVICES]; // for the application

uint16_t m_nDepthGab = 300;    // mm; every load overwrites it; gate of resampling mode 1
uint8_t m_nEdgeThres = 32;     // least amplitude of a removable edge pixel; written by the application
uint8_t m_nEdgeDepth = 100;    // mm, largest spread that is no edge; written by the application
float fAmpScale = 1.3f;        // of the amplitude check filter; written by the application
float fScatterScale = 1.6e-6f; // of the scattering check filter; written by the application
float fChgAxis_Amp;            // amplitude interpolated last; written by resampling, for applications
float fChgAxis_Dep1;           // depth interpolated last; written by resampling, for applications
