/* SPDX-FileCopyrightText: VQD_API contributors
 * SPDX-License-Identifier: Apache-2.0
 */
/**
 * @file VQD_API.h
 * @brief The public interface of libVQD_API: USB time-of-flight depth cameras, 320 x 240 amplitude and depth. C11 and
 * C++.
 *
 * The order of a session:
 * @code
 * DevInfo list[VQD_MAX_DEVICES];
 * int count;
 * vqdGetDeviceList(list, &count);           // find the cameras, open a handle to each, load its parameters
 * vqdDeviceOpen(0);                         // claim camera 0
 * vqdGrabStart(0);
 * uint16_t amplitude[VQD_PIXELS], depth[VQD_PIXELS];
 * uint16_t* images[2] = {amplitude, depth};
 * FrameInfo info;
 * while (vqdReadFromDevice(0, images, &info) == VQD_OK)
 *     use(amplitude, depth, &info);
 * vqdGrabStop(0);
 * vqdDeviceClose(0);
 * @endcode
 *
 * Conventions that hold for every function:
 * - A camera is addressed by its device number, 0 to 9, as listed. Every other number is refused before anything is
 * touched, like a camera that is not open.
 * - Results are ::VQD_OK (1), ::VQD_FAILED (0) or a named negative code. Failures print one line on standard output;
 * there is no other error channel.
 * - A flag argument means "on" only when it equals 1.
 * - Depth is in millimetres, 0 marks an invalid pixel. Images are row-major: pixel (x, y) at index 320 * y + x.
 * - Every call blocks until its USB traffic is done; the library starts no thread and takes no lock. Call it from one
 * thread at a time, also for different cameras. It uses libusb's default context.
 * - The caller owns every buffer it passes. A null pointer for something the function must read or fill makes it fail
 * without side effects; optional outputs are skipped.
 */
#ifndef VQD_API_H
#define VQD_API_H

#include <stdint.h>

#ifndef VQD_API
#if defined(__GNUC__)
/** Marks what the shared library exports. */
#define VQD_API __attribute__((visibility("default")))
#else
#define VQD_API
#endif
#endif

#ifdef __cplusplus
extern "C" {
#endif

struct libusb_device;
struct libusb_device_handle;
struct libusb_device_descriptor;
struct libusb_config_descriptor;

/* ------------------------------------------------------------------------------------------------------------------------
 * Limits and codes
 */

/** Sizes that the cameras and the library's tables fix. */
enum VqdLimit {
    VQD_MAX_DEVICES = 10,     /**< device numbers are 0 to 9 */
    VQD_WIDTH = 320,          /**< columns of an image */
    VQD_HEIGHT = 240,         /**< rows of an image */
    VQD_PIXELS = 76800,       /**< pixels of an image */
    VQD_FRAME_BYTES = 307712, /**< a raw frame: 512-byte header, amplitude plane, depth plane */
    VQD_IMAGE_BYTES = 512,    /**< a camera's parameter image */
    VQD_EEPROM_BYTES = 128    /**< its persistent part, image bytes 0 to 127 */
};

/** Result codes. */
enum VqdResult {
    VQD_OK = 1,               /**< done; also "yes" */
    VQD_FAILED = 0,           /**< failed, the message is printed; also "no" */
    VQD_NO_HANDLE = -1,       /**< the camera is marked open but has no handle; or no camera was found */
    VQD_NOT_OPEN = -2,        /**< the camera is not open; or listing failed */
    VQD_REOPEN_EXHAUSTED = -3 /**< the budget of re-open attempts, ::m_nReopenTime, is spent */
};

/* ------------------------------------------------------------------------------------------------------------------------
 * Records. Their layouts are part of the binary interface.
 */

/** Identity of one camera, 1036 bytes. */
typedef struct DevInfo {
    int32_t nIndex; /**< device number; in ::m_stDevInfo -1 from an enumeration until the camera is listed again */
    char szReserved[256];     /**< never written by the library */
    char szVendorName[256];   /**< USB manufacturer string, empty when it can not be read */
    char szDeviceName[256];   /**< USB product string; it holds the model designator, such as "VQD-HT120" */
    char szSerialNumber[256]; /**< 14 lower-case hexadecimal digits from the camera's EEPROM */
    uint16_t nVendorId;       /**< USB vendor id */
    uint16_t nProductId;      /**< USB product id */
    uint16_t nModelFlag;      /**< 1 for the models WN120, HT120, RS120 and HT950X, else 0 */
    uint16_t nReserved;       /**< never written by the library */
} DevInfo;

/** Frame information of one stream, 24 bytes. */
typedef struct FrameInfo {
    uint32_t nWidth;      /**< image width in pixels */
    uint32_t nHeight;     /**< image height in pixels */
    uint64_t nFrameCount; /**< frames counted since the first enumeration of the process */
    int64_t nTimeStamp;   /**< milliseconds from the stream's first frame to this one; 0 or -1 for the first */
} FrameInfo;

/** A camera's whole configuration, as it travels to the camera. Multi-byte numbers are big-endian. */
typedef uint8_t ParamImage[VQD_IMAGE_BYTES];

/** A camera's parameter image and the values decoded from it, 532 bytes. */
typedef struct CamParam {
    ParamImage image;          /**< the host's copy of the parameter image */
    uint16_t nMaxDistance;     /**< millimetres that the modulation frequency can tell apart */
    uint16_t nModFrequency;    /**< modulation frequency in MHz */
    uint16_t nIntegrationTime; /**< 100 times image byte 6; its unit is the camera's own */
    int16_t nOffset;           /**< depth offset, -255 to 255 */
    uint16_t nThreshold;       /**< threshold that was stored last, check or scatter, 0 to 255 */
    int32_t nMaxDepth;         /**< largest depth in millimetres that the host lets pass (host-corrected models) */
    int32_t nMinDepth;         /**< smallest depth in millimetres that the host lets pass (host-corrected models) */
} CamParam;

/** Times of one stream, 24 bytes. */
typedef struct StreamTimer {
    double init;    /**< when the tables were initialised, milliseconds since 1970 */
    int64_t start;  /**< when the stream's first frame came, milliseconds since 1970; 0 before */
    int64_t latest; /**< when its latest frame came, milliseconds since 1970; 0 before */
} StreamTimer;

/** A depth-space point or a camera-space point. */
typedef struct Point3f {
    float x; /**< column; or metres to the right */
    float y; /**< row; or metres up */
    float z; /**< depth in mm; or metres ahead */
} Point3f;

/** A lens, in pixels of the 320 x 240 image. */
typedef struct LensIntrinsic {
    float fx; /**< focal length in columns */
    float fy; /**< focal length in rows */
    float cx; /**< column of the principal point */
    float cy; /**< row of the principal point */
} LensIntrinsic;

/** A lens's distortion (Brown-Conrady model). */
typedef struct LensDistortion {
    float k1;   /**< radial, of r^2 */
    float k2;   /**< radial, of r^4 */
    float k3;   /**< radial, of r^6 */
    float p1;   /**< tangential */
    float p2;   /**< tangential */
    float skew; /**< skew of the axes */
} LensDistortion;

/** A rigid transform, applied as R p + t: the matrix row by row, then the translation. */
typedef struct ExtrinsicParam {
    float r11; /**< R, row 1, column 1 */
    float r12; /**< R, row 1, column 2 */
    float r13; /**< R, row 1, column 3 */
    float r21; /**< R, row 2, column 1 */
    float r22; /**< R, row 2, column 2 */
    float r23; /**< R, row 2, column 3 */
    float r31; /**< R, row 3, column 1 */
    float r32; /**< R, row 3, column 2 */
    float r33; /**< R, row 3, column 3 */
    float tx;  /**< t, x */
    float ty;  /**< t, y */
    float tz;  /**< t, z */
} ExtrinsicParam;

/* ------------------------------------------------------------------------------------------------------------------------
 * Devices and grabbing
 */

/**
 * Finds the attached cameras, opens a handle to each and loads its parameters.
 *
 * Prints the version line "VQD_Library_Ver2.4_180220". Cameras get the device numbers 0, 1, ... in libusb's order. Each
 * gets a fresh handle; handles of an earlier listing are closed. Blocks for up to some seconds a camera when cameras do
 * not answer.
 * @param list  caller's array with room for one entry per camera found, ::VQD_MAX_DEVICES at most
 * @param count receives the number of cameras; -1 when libusb is up but listing failed; untouched when libusb is not up
 * @return ::VQD_OK, or ::VQD_NOT_OPEN: libusb could not start, no camera, more than 10 cameras, or a null pointer
 */
VQD_API int vqdGetDeviceList(DevInfo* list, int* count);

/**
 * Claims a listed camera and makes it ready to grab. Takes 100 ms.
 * @return ::VQD_OK, or 0 after a message; the device number is empty then and must be listed again
 */
VQD_API int vqdDeviceOpen(int n);

/**
 * Stops grabbing, closes the camera's handle and, when no camera is left open, gives libusb's default context back.
 *
 * A close that leaves no camera open ends every use of the default context that the library has begun. If it has begun
 * none since the last such close, it calls libusb_exit(NULL) once all the same. A program that uses the default context
 * itself must therefore not close a number when no camera is open any more: that would end the program's own use, and
 * transfers under way would crash.
 * @return ::VQD_OK, also for an empty device number; -2 for a number outside 0 to 9
 */
VQD_API int vqdDeviceClose(int n);

/** Says whether a camera holds a handle: 1 from listing until close, else 0 with a message. */
VQD_API int vqdDeviceIsOpen(int n);

/** Starts the frame stream; takes 1.2 s. @return ::VQD_OK or 0 */
VQD_API int vqdGrabStart(int n);

/** Stops the frame stream; takes 400 ms. @return ::VQD_OK or 0 */
VQD_API int vqdGrabStop(int n);

/** Flushes the camera's read buffer; takes 200 ms, up to 1.2 s when the camera sends nothing. @return ::VQD_OK or 0 */
VQD_API int vqdReadBufInit(int n);

/* ------------------------------------------------------------------------------------------------------------------------
 * Frames
 */

/**
 * Reads the next frame of a grabbing camera into the caller's images.
 *
 * A failed transfer is repeated twice at once; after the third failure, with a missing handle or a wrong start code the
 * camera is re-opened (see vqdDeviceReOpen()) and goes on with its settings. A null pointer is noticed only where it
 * would be used, after the transfer. Blocks until the frame is there: up to 3 s a transfer, and up to some 10 s more
 * for a re-open.
 * @param n      device number
 * @param images two caller-owned images of 320 x 240 uint16: amplitude, then depth in millimetres, 0 invalid
 * @param info   receives the frame's information
 * @return ::VQD_OK: a frame was handled (after a wrong start code the images are left as they were); 0:
 * ::m_nReadingStop is 1, a null pointer, or the re-open failed; -2: device number outside 0 to 9; -3: the re-open
 * budget is spent (after a pause of 1 s when it was spent already)
 */
VQD_API int vqdReadFromDevice(int n, uint16_t** images, FrameInfo* info);

/**
 * Counts and stamps a frame of the colour camera that the application reads itself.
 * @param n     device number
 * @param image the application's image, only tested for null
 * @param info  receives the colour stream's information
 * @return ::VQD_OK; 0 after "RGB error": a null pointer, or the application has not set m_nRGBCamOpen[n]
 */
VQD_API int vqdReadFromDevice_RGB888(int n, void* image, FrameInfo* info);

/* ------------------------------------------------------------------------------------------------------------------------
 * Parameter image and EEPROM
 */

/**
 * Copies the host's parameter image.
 * @param n   device number
 * @param out receives 512 bytes
 * @return ::VQD_OK; 0 when the camera is not open or @p out is null
 */
VQD_API int vqdParameterData_Load(int n, unsigned char* out);

/**
 * Reads the camera's EEPROM anew, derives every setting from it (see LoadParameter()) and copies the parameter image.
 * @param n   device number
 * @param out receives 512 bytes
 * @return ::VQD_OK; 0 when the camera is not open or @p out is null
 */
VQD_API int vqdEEPROM_ParameterData_Load(int n, unsigned char* out);

/**
 * Replaces image bytes 0 to 127 and writes them to the camera's EEPROM. The camera's present settings and the decoded
 * values stay as they are until the next load.
 * @param n    device number
 * @param data 128 bytes
 * @return ::VQD_OK, also when the camera refuses the write ("EEPROM Parameter Save Success." is missing then); -1 or -2
 * of the device check; 0 when @p data is null
 */
VQD_API int vqdEEPROM_ParameterData_Save(int n, const unsigned char* data);

/**
 * Sends a whole parameter image to the camera and, once it is sent, keeps it as the host's copy. Takes 300 ms.
 * @param n     device number
 * @param image 512 bytes; it may be the host's own copy, stCamParam[n].image
 * @return ::VQD_OK or 0; after a failure the host's copy is as the caller left it
 */
VQD_API int vqdWriteToDevice(int n, const unsigned char* image);

/* --------------------------------------------------------------------------------------------------------------------
 * Settings. A setter edits the host's parameter image and sends it whole, which takes 300 ms and more; the edit stays
 * when the sending fails. It returns VQD_OK, or 0 after a message. A getter decodes the host's image and sends nothing;
 * it returns 0 for a camera that is not open. Settings are the camera's until it is listed again;
 * vqdEEPROM_ParameterData_Save() keeps them.
 */

/** Does nothing and returns 0: the cameras set their integration time themselves. */
VQD_API int vqdSetIntegrationTime(int n, int value);
/** Integration time, 0 to 25500 in steps of 100, in the camera's own unit. */
VQD_API int vqdGetIntegrationTime(int n);

/**
 * Sets the modulation frequency, which bounds the depth that can be told apart: 15 m at 10 MHz, 7.5 m at 20, 5 m at 30.
 * @param n   device number
 * @param mhz RS models: 10; HT110 and HT120: 20 or 30; other models take any value and keep their frequency
 * @return ::VQD_OK; 0 also, without a message, for a frequency that the model does not have
 */
VQD_API int vqdSetModuleFrequency(int n, int mhz);
/** Modulation frequency in MHz; 0 also when the image holds no known one. Refreshes nModFrequency and nMaxDistance. */
VQD_API int vqdGetModuleFrequency(int n);

/** Sets the depth offset, -255 to 255. */
VQD_API int vqdSetOffset(int n, int offset);
/** Depth offset, -255 to 255. */
VQD_API int vqdGetOffset(int n);

/** Sets the scatter threshold; the low byte of @p value counts. */
VQD_API int vqdSetScatterThreshold(int n, int value);
/** Scatter threshold, 0 to 255; also of a camera that is not open. */
VQD_API int vqdGetScatterThreshold(int n);
/** Sets the check threshold; the low byte of @p value counts. */
VQD_API int vqdSetCheckThreshold(int n, int value);
/** Check threshold, 0 to 255. */
VQD_API int vqdGetCheckThreshold(int n);

/**
 * Sets the depth range in millimetres; the low 16 bits of both limits count. Host-corrected models clip with it once
 * vqdGetDepthRange() has read it back.
 * @param n       device number
 * @param minimum at most the present maximum
 * @param maximum from the present minimum to what the modulation frequency can tell apart
 */
VQD_API int vqdSetDepthRange(int n, int minimum, int maximum);
/** Depth range in millimetres, and the range that the host clips with. @return ::VQD_OK or 0 */
VQD_API int vqdGetDepthRange(int n, int* minimum, int* maximum);

/** Mirrors the image left to right (on 1). The vertical flip is sent along as it was set or read last on any camera. */
VQD_API int vqdSetFlipHorizontal(int n, int on);
/** Whether the image is mirrored left to right: 1 or 0. */
VQD_API int vqdGetFlipHorizontal(int n);
/** Mirrors the image top to bottom (on 1). The horizontal flip is sent along as it was set or read last on any camera.
 */
VQD_API int vqdSetFlipVertical(int n, int on);
/** Whether the image is mirrored top to bottom: 1 or 0. */
VQD_API int vqdGetFlipVertical(int n);

/** Sets the frame delay, 0 to 100, which lowers the frame rate; the low byte of @p delay counts. */
VQD_API int vqdSetFPSDelay(int n, int delay);
/** Frame delay, 0 to 100. */
VQD_API int vqdGetFPSDelay(int n);

/**
 * Makes the camera one of several that light in turn.
 * @param n    device number
 * @param mode 1 on, else off
 * @param slaveCount 1 to 9
 * @param slaveID 0 to 9
 */
VQD_API int vqdSetMultiCamMode(int n, int mode, int slaveCount, int slaveID);
/** Switches multi-sync mode on (1) or off. */
VQD_API int vqdSetMultiSyncMode(int n, int on);
/** Whether multi-sync or multi-camera mode is on: 1 or 0, -4 when the image holds neither; also of a closed camera. */
VQD_API int vqdGetMultiSyncMode(int n);

/** Switches illumination and capture on (1) or off. */
VQD_API int vqdIlluminationOnOff(int n, int on);

/** Sensor temperature of the latest frame; 0.0 before the first one and for a camera that is not open. */
VQD_API double vqdGetTemperature(int n);
/** Logic version of the latest frame, 0 before the first one. @return ::VQD_OK or 0 */
VQD_API int vqdGetLogincVersion(int n, int* first, int* second);

/**
 * Removes pixels at depth edges (on 1): on the host for host-corrected models, else in the camera. The setting is one
 * for the library. Values but 0 and 1 leave a model that corrects in the camera as it is.
 */
VQD_API int vqdSetRemoveEdge(int n, int on);
/** Whether edges are removed: 1 or 0, or the present flag when the image holds no known code. */
VQD_API int vqdGetRemoveEdge(int n);
/** Removes motion blur in the camera (on 1) with a level of 0 to 255; the low byte of @p level counts. */
VQD_API int vqdSetRemoveMotionBlur(int n, int on, int level);
/**
 * Whether motion blur is removed: 1 or 0, or the present flag when the image holds no known code.
 * @param n     device number
 * @param level receives the level, 0 to 255
 */
VQD_API int vqdGetRemoveMotionBlur(int n, unsigned int* level);

/* --------------------------------------------------------------------------------------------------------------------
 * Filters on the application's own images of w x h pixels, in place. A width or height below 1 does nothing.
 */

/** Clears depth whose amplitude is below threshold * ::fAmpScale; the low byte of @p threshold counts. */
VQD_API void vqdAmplitudeCheckFilter(const uint16_t* amplitude, uint16_t* depth, int threshold, int w, int h);
/** Clears depth whose amplitude is below threshold / (depth^2 * ::fScatterScale); the low byte of @p threshold counts.
 */
VQD_API void vqdScatteringCheckFilter(const uint16_t* amplitude, uint16_t* depth, int threshold, int w, int h);
/** Clears pixels below @p minimum or above @p maximum; the low 16 bits of both count. */
VQD_API void vqdMinMaxCheckFilter(uint16_t* image, unsigned int minimum, unsigned int maximum, int w, int h);

/* --------------------------------------------------------------------------------------------------------------------
 * Lens and geometry
 */

/**
 * Sets the depth lens and saves it to the EEPROM. The caches keep the exact values, the image fixed-point ones: focal
 * lengths and principal point in steps of 0.1 up to 6553.5, p1 and p2 in steps of 0.01, the others of 0.001 up
 * to 32.767; a value out of range is stored as the nearest possible one. Undistortion follows at the next
 * vqdSetUndistortion() or load.
 * @return ::VQD_OK, also when the camera refuses the write; 0 when it is not open
 */
VQD_API int vqdSetLensParameter(int n, LensIntrinsic intrinsic, LensDistortion distortion);
/**
 * Depth lens from the image.
 * @param n          device number
 * @param intrinsic  receives fx, fy, cx, cy
 * @param distortion receives k1, k2, k3, p1, p2, skew
 */
VQD_API int vqdGetLensParameter(int n, float* intrinsic, float* distortion);
/** Sets the colour lens and saves it to the EEPROM; like vqdSetLensParameter() but with p1 and p2 in steps of 0.001. */
VQD_API int vqdSetRGBLensParameter(int n, LensIntrinsic intrinsic, LensDistortion distortion);
/**
 * Colour lens from the image.
 * @param n          device number
 * @param intrinsic  receives fx, fy, cx, cy
 * @param distortion receives k1, k2, k3, p1, p2, skew
 */
VQD_API int vqdGetRGBLensParameter(int n, float* intrinsic, float* distortion);
/** Sets the transform between the cameras, in steps of 0.0001 up to 3.2767; only r11 to r21 reach the EEPROM. */
VQD_API int vqdSetExtrinsicParameter(int n, ExtrinsicParam extrinsic);
/**
 * Transform between the cameras from the image.
 * @param n         device number
 * @param extrinsic receives the matrix row by row, then the translation: 12 values
 */
VQD_API int vqdGetExtrinsicParameter(int n, float* extrinsic);

/**
 * Sets how frames are undistorted, for all cameras, with the lens of camera @p n.
 * @param n    device number
 * @param mode 1 bilinear but invalid across depth jumps above ::m_nDepthGab, 2 bilinear, 3 nearest sample, else not at
 * all
 * @return ::VQD_OK; 0 when the camera is not open (the mode is set all the same) or the image was not sent
 */
VQD_API int vqdSetUndistortion(int n, int mode);
/** Undistortion mode, 0 to 3, or the present mode when the image holds no known code. */
VQD_API int vqdGetUndistortion(int n);
/**
 * Where a pixel of the raw image lies in the undistorted one, which may be outside it. Both integers stay as they are
 * when the lens has no answer.
 */
VQD_API void vqdGetUndistortPixel(int n, int* column, int* row);

/** Applies a transform to a point: R p + t. */
VQD_API void vqdXYZ3DConversion(Point3f* out, Point3f p, ExtrinsicParam e);
/** The transposed cofactor matrix, for a rotation its inverse, and the negated (not rotated) translation. */
VQD_API ExtrinsicParam vqdGetReverse(ExtrinsicParam e);
/** Column, row (plus 0.5, so that truncation rounds) and depth in mm of a camera-space point in m. */
VQD_API void vqdCameraSpacePointToDepth(Point3f* out, Point3f p, LensIntrinsic k);
/** Camera-space point in m (X right, Y up, Z forward) of column, row and depth in mm. */
VQD_API void vqdDepthPointToCameraSpace(Point3f* out, Point3f p, LensIntrinsic k);
/**
 * Camera-space points in m of a depth image, through the rays of ::pPointCloud.
 * @param depth  width x height pixels in mm
 * @param points receives as many points; 76800 at the most, those beyond are left as they are
 * @param width  columns of the image
 * @param height its rows
 */
VQD_API void vqdDepthFrameToCameraSpace(const uint16_t* depth, Point3f* points, int width, int height);

/* --------------------------------------------------------------------------------------------------------------------
 * Calibration tables and switches. Tables travel as raw bytes, 16-bit values big-endian. A save sends chunks and pauses
 * after each; what the camera refuses is not noticed. All return VQD_OK, or 0 when the camera is not open or the buffer
 * is null.
 *
 * Note: libusb on Linux refuses control transfers above 4096 bytes. vqdLoadWigglingData(), vqdLoadFPPNData_4x4() and
 * vqdLoadFPPNData_5x5() read more than that in their one request; with such a libusb they deliver zeros.
 */

/** Writes the wiggling table: 3840 bytes, 75 ms. */
VQD_API int vqdSaveWigglingData(int n, const unsigned char* data);
/** Writes the long wiggling table: 8192 bytes, 320 ms; with @p flag (its low byte) the second one. */
VQD_API int vqdSaveWigglingData2(int n, const unsigned char* data, int flag);
/** Writes the plain FPPN table: 12288 bytes, 240 ms. */
VQD_API int vqdSaveFPPNData(int n, const unsigned char* data);
/** Writes the FPPN table of 4 x 4 blocks: 9600 bytes, 300 ms; with @p flag (its low byte) sends nothing. */
VQD_API int vqdSaveFPPNData_4x4(int n, const unsigned char* data, int flag);
/** Writes the FPPN table of 5 x 5 blocks: 6144 bytes, 192 ms; with @p flag (its low byte) sends nothing. */
VQD_API int vqdSaveFPPNData_5x5(int n, const unsigned char* data, int flag);
/** Writes the radial orthogonal table: 4096 bytes, 160 ms. */
VQD_API int vqdSaveOrthogonalData(int n, const unsigned char* data);

/**
 * Reads the wiggling table (one transfer above 4096 bytes: zeros with libusb on Linux).
 * @param n      device number
 * @param values receives 4096 values
 * @param first  refused when negative; else without effect
 * @param size   refused above 8192; else without effect
 */
VQD_API int vqdLoadWigglingData(int n, uint16_t* values, int first, int64_t size);
/** Reads the FPPN table of 4 x 4 blocks into 4800 values, 0 to 65535 (needs more than 4096 bytes a transfer, see
 * above). */
VQD_API int vqdLoadFPPNData_4x4(int n, int* values);
/** Reads the FPPN table of 5 x 5 blocks into 3072 values, -255 to 255 (needs more than 4096 bytes a transfer, see
 * above). */
VQD_API int vqdLoadFPPNData_5x5(int n, int* values);
/** Reads the radial orthogonal table into 2048 factors, 0 to 6.5535. @return also 0, values untouched, when the read
 * fails */
VQD_API int vqdLoadOrthogonalData(int n, double* factors);

/** Adds the FPPN offsets to the depth (on 1): on the host for host-corrected models, else in the camera. */
VQD_API int vqdSetFPPN(int n, int on);
/** Whether the FPPN correction is on: 1 or 0, or the present flag when the image holds no known code. */
VQD_API int vqdGetFPPN(int n);
/** Applies the orthogonal factors to the depth (on 1): on the host for host-corrected models, else in the camera. */
VQD_API int vqdSetOrthogonal(int n, int on);
/** Whether the orthogonal correction is on: 1 or 0, or the present flag when the image holds no known code. */
VQD_API int vqdGetOrthogonal(int n);

/* ------------------------------------------------------------------------------------------------------------------------
 * Exported tables, switches and values. One entry a device number where there are ten.
 */

VQD_API extern DevInfo m_stDevInfo[VQD_MAX_DEVICES]; /**< identities; written by enumeration and listing */
VQD_API extern CamParam stCamParam[VQD_MAX_DEVICES]; /**< parameter images and decoded values */
VQD_API extern int m_nDeviceOpen[VQD_MAX_DEVICES]; /**< 1 after a re-open found the camera; 0 after close or failure */
VQD_API extern int m_nDeviceCount;                 /**< cameras that the latest enumeration found */
VQD_API extern int m_nReopenTime; /**< re-open attempts left, from 600; below 500 none; may be raised */
VQD_API extern int m_nInit;       /**< 1 once the tables are initialised */
VQD_API extern int m_nUnInit;     /**< 1 once a camera has been closed */
VQD_API extern struct libusb_config_descriptor* configDesc; /**< of the last opened camera; the library frees it */
VQD_API extern char m_szbufName[100];                       /**< for the application; unused by the library */
VQD_API extern char m_szDeviceName[20];                     /**< for the application; unused by the library */
VQD_API extern char m_szParamName[100];                     /**< for the application; unused by the library */

VQD_API extern FrameInfo m_pFrameInfo[VQD_MAX_DEVICES];            /**< depth streams */
VQD_API extern FrameInfo m_pRGBFrameInfo[VQD_MAX_DEVICES];         /**< colour streams */
VQD_API extern StreamTimer g_vqdHighReslTimer[VQD_MAX_DEVICES];    /**< times of the depth streams */
VQD_API extern StreamTimer g_vqdHighReslTimerRGB[VQD_MAX_DEVICES]; /**< times of the colour streams */
VQD_API extern unsigned char buffers[VQD_FRAME_BYTES];             /**< the latest raw frame of any camera */
VQD_API extern int m_nReadingStop;                     /**< the application sets 1 to make every frame read return 0 */
VQD_API extern int m_nRetriesCount;                    /**< failed transfers in a row inside a frame read */
VQD_API extern int m_nTimeStampStartFlag;              /**< 1 once a depth frame has been stamped */
VQD_API extern int m_nTimeStampStartFlag_RGB;          /**< 1 once a colour frame has been stamped */
VQD_API extern double m_dTemperature[VQD_MAX_DEVICES]; /**< sensor temperature from the latest header, 0.0625 a count */
VQD_API extern uint16_t m_nLogicver[2]
                                   [VQD_MAX_DEVICES]; /**< logic version from the latest header: first, second number */
VQD_API extern int64_t t_Begin;                       /**< for the application; unused by the library */
VQD_API extern int64_t t_Stop;                        /**< for the application; unused by the library */
VQD_API extern int64_t t_End;                         /**< for the application; unused by the library */
VQD_API extern int64_t liFrequency;                   /**< for the application; unused by the library */

VQD_API extern int m_nRGBCamOpen[VQD_MAX_DEVICES]; /**< the application sets it while the colour camera is open */
VQD_API extern int m_nRGB_WIDTH;                   /**< for the application; unused by the library */
VQD_API extern int m_nRGB_HEIGHT;                  /**< for the application; unused by the library */
VQD_API extern unsigned char m_nRGBCAM_No[VQD_MAX_DEVICES]; /**< for the application; unused by the library */

VQD_API extern uint16_t m_nDepthGab;    /**< largest depth spread in mm that gated resampling interpolates, from 300 */
VQD_API extern uint8_t m_nEdgeThres;    /**< least amplitude at which an edge pixel is removed, from 32 */
VQD_API extern uint8_t m_nEdgeDepth;    /**< largest depth spread in mm that is not an edge, from 100 */
VQD_API extern float fAmpScale;         /**< scale of the amplitude check filter, from 1.3 */
VQD_API extern float fScatterScale;     /**< scale of the scattering check filter, from 1.6e-6 */
VQD_API extern float fChgAxis_Amp;      /**< amplitude that resampling interpolated last */
VQD_API extern float fChgAxis_Dep1;     /**< depth that resampling interpolated last */
VQD_API extern int m_bRemoveEdge;       /**< edge removal, on when 1; of the camera set or loaded last */
VQD_API extern int m_bRemoveMotionBlur; /**< motion-blur removal in the camera, on when 1; of the one set last */
VQD_API extern int m_bHorizontal;       /**< horizontal flip that was set or read last */
VQD_API extern int m_bVertical;         /**< vertical flip that was set or read last */
VQD_API extern int m_bFPPN;             /**< FPPN correction, on when 1; of the camera set or loaded last */
VQD_API extern int m_bOrthogonal;       /**< orthogonal correction, on when 1; of the camera set or loaded last */
VQD_API extern int m_nUndistortionMode; /**< 1 gated bilinear, 2 bilinear, 3 nearest, else none */

VQD_API extern float m_fIntrinsicParam[VQD_MAX_DEVICES][4];    /**< depth lens: fx, fy, cx, cy in pixels */
VQD_API extern float m_fDistorParam[VQD_MAX_DEVICES][6];       /**< depth lens: k1, k2, k3, p1, p2, skew */
VQD_API extern float m_fRGBIntrinsicParam[VQD_MAX_DEVICES][4]; /**< colour lens: fx, fy, cx, cy in pixels */
VQD_API extern float m_fRGBDistorParam[VQD_MAX_DEVICES][6];    /**< colour lens: k1, k2, k3, p1, p2, skew */
VQD_API extern float m_fExtrinsicParam[VQD_MAX_DEVICES][12];   /**< rotation row by row, then translation */
VQD_API extern float m_fXp2[VQD_PIXELS];   /**< undistortion map: raw column of each corrected pixel */
VQD_API extern float m_fYp2[VQD_PIXELS];   /**< undistortion map: raw row of each corrected pixel */
VQD_API extern float fDist_x2[VQD_PIXELS]; /**< undistortion map: column fraction (modes 1, 2) or raw column (mode 3) */
VQD_API extern float fDist_y2[VQD_PIXELS]; /**< undistortion map: row fraction (modes 1, 2) or raw row (mode 3) */
VQD_API extern float m_fX_nu;              /**< last map pixel: normalised undistorted x */
VQD_API extern float m_fY_nu;              /**< last map pixel: normalised undistorted y */
VQD_API extern float m_fRu2;               /**< last map pixel: squared radius */
VQD_API extern float m_fRadial_d;          /**< last map pixel: radial factor */
VQD_API extern float m_fX_nd;              /**< last map pixel: normalised distorted x */
VQD_API extern float m_fY_nd;              /**< last map pixel: normalised distorted y */
VQD_API extern Point3f pPointCloud[VQD_PIXELS]; /**< camera-space point of each pixel at 1 mm depth, in metres */

VQD_API extern int m_nEEPROMFPPNBuf[4800]; /**< FPPN depth offset in mm of each 4 x 4 block, 80 blocks a row */
VQD_API extern double m_dOrthogonalData[VQD_PIXELS]; /**< orthogonal depth factor of each pixel */

/* ------------------------------------------------------------------------------------------------------------------------
 * Exported helpers: the steps that the functions above are made of. Applications seldom need them.
 */

/** Initialises the tables, once a process. @return 1 the first time, 0 later */
VQD_API int InitParameter(void);

/** Notes that a camera was closed, in ::m_nUnInit. */
VQD_API void UnInitParameter(void);

/** The device check. @return ::VQD_OK; -1 or -2 after "VQD device handle error." or "VQD Device not opened." */
VQD_API int VQDDevice_ErrorChecked(int n);

/** Takes libusb's device list. @return ::VQD_OK or -2 after a message */
VQD_API int GetUsbDevice(void);

/** Says whether a USB device is one of the library's cameras, by vendor and product id: 1 or 0. */
VQD_API int device_is_of_interest(struct libusb_device* dev);

/** Enumerates: opens a handle to every camera, device numbers in libusb's order. @return ::VQD_OK, -1 no camera, -2
 * failure */
VQD_API int GetVQDDeviceHandle(void);

/** Stops grabbing and closes the handle of @p n; with @p exitSession 1 ends libusb's context if no camera holds a
 * handle. */
VQD_API void UnInitialize_vqdapi(int n, int exitSession);

/**
 * Closes the camera, looks for it every 100 ms while ::m_nReopenTime lasts, and starts it again with its settings. The
 * other cameras stay untouched. Takes 2.2 s when the camera is there, some 10 s when it stays away.
 * @return ::VQD_OK; 0 when the camera refuses to start; -2 device number outside 0 to 9; -3 the budget is spent
 */
VQD_API int vqdDeviceReOpen(int n);

/** Resets the camera's read buffer. @return the bytes of the request, 64; 0 on failure */
VQD_API int vqdReadBufReset(int n);

/** Prepares the camera for parameter images; takes 500 ms. @return the bytes of the last request, 64; 0 on failure */
VQD_API int vqdWriteBufInit(int n);

/** Reads the EEPROM or falls back to factory settings, then derives everything from it. @return ::VQD_OK; 0 outside 0
 * to 9 */
VQD_API int LoadParameter(int n);

/** Writes image bytes 0 to 127 to the EEPROM. @return ::VQD_OK, also when the camera refuses; 0 outside 0 to 9 */
VQD_API int SaveParameter(int n);

/** Fills the undistortion maps for camera @p n in the present mode. @return ::VQD_OK, also when the mode needs none; 0
 */
VQD_API int BuildUndistortionMap(int n);

/** Fills ::m_dOrthogonalData from the camera's table, or from "./Orthogonal_Table.dat" when that looks wrong. */
VQD_API void LoadOrthogonalTable(int n);

/** Fills ::pPointCloud with the rays of a lens. */
VQD_API void BuildPointCloudTable(LensIntrinsic k);

/** Sorts ascending, in place. */
VQD_API void DataSort(int* values, int count);

/** Rounds half up; 0 for a value that no int holds. */
VQD_API int Round(float value);

/* One libusb call each, on an open handle. They print nothing; a null handle gives -4 (no device), 0 or an untouched
 * buffer. */

/** Reads the device descriptor. @return libusb's result */
VQD_API int usb_get_device_descriptor(struct libusb_device_handle* handle, struct libusb_device_descriptor* descriptor);
/** Vendor id from the device descriptor. */
VQD_API uint16_t usb_getvendor(struct libusb_device_handle* handle);
/** Product id from the device descriptor. */
VQD_API uint16_t usb_getproduct(struct libusb_device_handle* handle);
/** Reads the manufacturer string into @p buf of @p len bytes. @return @p buf */
VQD_API char* usb_get_VendorName(struct libusb_device_handle* handle, char* buf, int len);
/** Reads the product string into @p buf of @p len bytes. @return @p buf */
VQD_API char* usb_get_DeviceName(struct libusb_device_handle* handle, char* buf, int len);
/** Reads the USB serial-number string into @p buf of @p len bytes. @return @p buf */
VQD_API char* usb_get_SerialNumber(struct libusb_device_handle* handle, char* buf, int len);
/** Bus number of the device. */
VQD_API uint8_t usb_get_busnumber(struct libusb_device_handle* handle);
/** Address of the device on its bus. */
VQD_API uint8_t usb_get_devaddr(struct libusb_device_handle* handle);
/** Largest isochronous packet of an endpoint. @return libusb's result */
VQD_API int usb_get_max_iso_packet_size(struct libusb_device_handle* handle, unsigned char endpoint);
/** Claims an interface. @return libusb's result */
VQD_API int usb_claim_interface(struct libusb_device_handle* handle, int interface_number);
/** Chooses an alternate setting. @return libusb's result */
VQD_API int usb_set_interface_alt_setting(struct libusb_device_handle* handle, int interface_number,
                                          int alternate_setting);
/** Says whether a kernel driver holds an interface. @return 0 no, 1 yes, negative: libusb's error */
VQD_API int usb_kernel_driver_active(struct libusb_device_handle* handle, int interface_number);
/** Fetches a configuration descriptor; the caller frees it with usb_free_config_descriptor(). @return libusb's result
 */
VQD_API int usb_get_config_descriptor(struct libusb_device_handle* handle, uint8_t index,
                                      struct libusb_config_descriptor** descriptor);
/** Frees a configuration descriptor; null is allowed. */
VQD_API void usb_free_config_descriptor(struct libusb_config_descriptor* descriptor);
/** One control transfer, time-out in ms. @return bytes moved, or libusb's negative error */
VQD_API int usb_control_transfer(struct libusb_device_handle* handle, uint8_t request_type, uint8_t request,
                                 uint16_t value, uint16_t index, unsigned char* data, uint16_t length,
                                 unsigned int timeout);
/** One bulk transfer, time-out in ms. @return 0, or libusb's negative error */
VQD_API int usb_bulk_transfer(struct libusb_device_handle* handle, unsigned char endpoint, unsigned char* data,
                              int length, int* transferred, unsigned int timeout);

#ifdef __cplusplus
}
#endif

#endif /* VQD_API_H */
