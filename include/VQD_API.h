/* SPDX-FileCopyrightText: VQD_API contributors
 * SPDX-License-Identifier: Apache-2.0
 */
/**
 * @file VQD_API.h
 * @brief The public interface of libVQD_API, which drives USB time-of-flight depth cameras of 320 x 240 pixels, for C11
 * and C++.
 *
 * A session runs in this order:
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
 * Conventions:
 * - A camera is addressed by its device number, 0 to 9, which it gets from listing. Any other number is refused before
 * anything is touched, in the same way as a camera that is not open.
 * - A result is ::VQD_OK (1), ::VQD_FAILED (0) or a negative code. When a step fails, the library prints one line on
 * standard output that names the step; it has no other error channel. A refused argument has a line only where its
 * function says so.
 * - A flag argument means "on" only when it is exactly 1.
 * - Depth is in millimetres, and 0 marks an invalid pixel. Images are stored row by row: pixel (x, y) is at index
 * 320 * y + x.
 * - HT120 and HT950X are the host-corrected models: the library corrects their depth. All other models correct it in
 * the camera.
 * - Every call blocks until its USB traffic is done. The library starts no thread and takes no lock, and its cameras
 * share state, so it must be called from one thread at a time, even for different cameras. It uses libusb's default
 * context.
 * - The caller owns every buffer that it passes, and the library keeps no pointer to it after the call. A function
 * fails when a pointer is null that it must read from or write to. vqdGetDeviceList() and vqdReadFromDevice() notice
 * this only where they would use the pointer, all others before they touch anything. A pointer that may be null says
 * so.
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

/** Sizes that the cameras and the library's tables have. */
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
    VQD_OK = 1,               /**< done; as an answer, "yes" */
    VQD_FAILED = 0,           /**< failed or refused; as an answer, "no" */
    VQD_NO_HANDLE = -1,       /**< the camera is marked open but has no handle; from an enumeration: no camera found */
    VQD_NOT_OPEN = -2,        /**< the camera is not open; from a listing: it failed, or there is no camera */
    VQD_REOPEN_EXHAUSTED = -3 /**< the budget of re-open searches, ::m_nReopenTime, is spent */
};

/* ------------------------------------------------------------------------------------------------------------------------
 * Records. Their layouts are part of the binary interface.
 */

/** The identity of one camera, 1036 bytes. */
typedef struct DevInfo {
    int32_t nIndex; /**< device number; in ::m_stDevInfo, -1 from an enumeration until the camera is listed again */
    char szReserved[256];     /**< never written by the library */
    char szVendorName[256];   /**< USB manufacturer string, empty when it cannot be read */
    char szDeviceName[256];   /**< USB product string; it holds the model designator, such as "VQD-HT120" */
    char szSerialNumber[256]; /**< 14 lower-case hexadecimal digits from the camera's EEPROM */
    uint16_t nVendorId;       /**< USB vendor id */
    uint16_t nProductId;      /**< USB product id */
    uint16_t nModelFlag;      /**< 1 for the models WN120, HT120, RS120 and HT950X, else 0 */
    uint16_t nReserved;       /**< never written by the library */
} DevInfo;

/** What is known of a stream's latest frame, 24 bytes. */
typedef struct FrameInfo {
    uint32_t nWidth;      /**< image width in pixels */
    uint32_t nHeight;     /**< image height in pixels */
    uint64_t nFrameCount; /**< frames of this stream since the process first enumerated cameras */
    int64_t nTimeStamp;   /**< milliseconds from the stream's first frame to this one; 0 or -1 for the first */
} FrameInfo;

/** A camera's whole configuration in the form in which it is sent. Numbers of several bytes are big-endian. */
typedef uint8_t ParamImage[VQD_IMAGE_BYTES];

/** A camera's parameter image and the values decoded from it, 532 bytes. */
typedef struct CamParam {
    ParamImage image;          /**< the host's copy of the parameter image */
    uint16_t nMaxDistance;     /**< unambiguous range of the modulation frequency in millimetres */
    uint16_t nModFrequency;    /**< modulation frequency in MHz */
    uint16_t nIntegrationTime; /**< 100 times image byte 6, in the camera's own unit */
    int16_t nOffset;           /**< depth offset, -255 to 255 */
    uint16_t nThreshold;       /**< check or scatter threshold set last, or check threshold read last, 0 to 255 */
    int32_t nMaxDepth;         /**< largest depth in millimetres that the host lets pass (host-corrected models) */
    int32_t nMinDepth;         /**< smallest depth in millimetres that the host lets pass (host-corrected models) */
} CamParam;

/** The times of one stream, 24 bytes. */
typedef struct StreamTimer {
    double init;    /**< when the tables were initialised, in milliseconds since 1970 */
    int64_t start;  /**< when the stream's first frame came, in milliseconds since 1970; 0 before it */
    int64_t latest; /**< when its latest frame came, in milliseconds since 1970; 0 before the first */
} StreamTimer;

/** A point in depth space (column, row, depth) or in camera space (X, Y, Z). */
typedef struct Point3f {
    float x; /**< column, or metres to the right */
    float y; /**< row, or metres up */
    float z; /**< depth in millimetres, or metres ahead */
} Point3f;

/** The intrinsic parameters of a lens, in pixels of the 320 x 240 image. */
typedef struct LensIntrinsic {
    float fx; /**< focal length in columns */
    float fy; /**< focal length in rows */
    float cx; /**< column of the principal point */
    float cy; /**< row of the principal point */
} LensIntrinsic;

/** The distortion of a lens (Brown-Conrady model). */
typedef struct LensDistortion {
    float k1;   /**< radial coefficient of r^2 */
    float k2;   /**< radial coefficient of r^4 */
    float k3;   /**< radial coefficient of r^6 */
    float p1;   /**< tangential coefficient */
    float p2;   /**< tangential coefficient */
    float skew; /**< skew of the image axes */
} LensDistortion;

/** A rigid transform, which maps a point p to R p + t: the matrix R row by row, then the translation t. */
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

/**
 * @name Devices and grabbing
 * @{
 */

/**
 * Finds the attached cameras, opens a handle to each and loads its parameters.
 *
 * Prints the version line "VQD_Library_Ver2.4_180220". Cameras get the device numbers 0, 1, ... in the order of
 * libusb's list. Each gets a fresh handle, and the handles of an earlier listing are closed. The call takes a few
 * transfers for each camera, or some seconds for a camera that does not answer.
 * @param list  array of the caller with an entry for each camera found; ::VQD_MAX_DEVICES entries are always enough
 * @param count receives the number of cameras; -1 when libusb has started but listing failed; stays as it is when
 * libusb cannot start
 * @return ::VQD_OK; ::VQD_NOT_OPEN when libusb cannot start, when there is no camera or more than 10, when a camera
 * cannot be opened, or when a pointer is null
 */
VQD_API int vqdGetDeviceList(DevInfo* list, int* count);

/**
 * Claims a listed camera and makes it ready to grab. Takes 100 ms.
 * @return ::VQD_OK; on a failure it prints the step that failed, empties the device number, which must then be listed
 * again, and returns 0
 */
VQD_API int vqdDeviceOpen(int n);

/**
 * Stops grabbing, which takes 400 ms, and closes the camera's handle. When no camera is left open, it also ends the
 * library's use of libusb's default context.
 *
 * A close that leaves no camera open ends every use of the default context that the library has begun. If the library
 * has begun none since the last such close, it calls libusb_exit(NULL) once all the same, unless it was built with
 * libusb older than 1.0.24. A program that uses the default context itself must therefore close no device number while
 * no camera is open: that would end the program's own use, and its transfers under way would crash.
 * @return ::VQD_OK, also for an empty device number; ::VQD_NOT_OPEN for a number outside 0 to 9
 */
VQD_API int vqdDeviceClose(int n);

/**
 * Says whether a device number holds a handle, as it does from listing until close.
 * @return 1, or prints a line and returns 0
 */
VQD_API int vqdDeviceIsOpen(int n);

/** Starts the frame stream. Takes 1.2 s. @return ::VQD_OK, or prints the step that failed and returns 0 */
VQD_API int vqdGrabStart(int n);

/** Stops the frame stream. Takes 400 ms. @return ::VQD_OK, or prints the step that failed and returns 0 */
VQD_API int vqdGrabStop(int n);

/**
 * Flushes the camera's read buffer. Takes 200 ms, or up to 1.1 s when the camera sends nothing.
 * @return ::VQD_OK, or prints the step that failed and returns 0
 */
VQD_API int vqdReadBufInit(int n);

/** @} */
/**
 * @name Frames
 * @{
 */

/**
 * Reads the next frame of a grabbing camera into the caller's images.
 *
 * A failed transfer is repeated at once, up to two times. The camera is re-opened with its settings (see
 * vqdDeviceReOpen()) after the third failure, when the device number holds no handle, and when the frame begins with a
 * wrong start code. After a re-open for failed transfers the call transfers nothing more, so it delivers the frame that
 * ::buffers still holds. A null pointer is noticed only after the transfer.
 *
 * Blocks until the frame has arrived: up to 3 s for a transfer, and some 10 s more when the camera has to be searched
 * for.
 * @param n      device number
 * @param images two images of the caller, each of 320 x 240 uint16_t: amplitude, then depth in millimetres, 0 invalid
 * @param info   receives the frame's information
 * @retval VQD_OK               a frame was handled; a wrong start code leaves the images as they were before the call
 * @retval VQD_FAILED           ::m_nReadingStop is 1, a pointer is null, or the camera was found but did not start
 * @retval VQD_NOT_OPEN         the device number is outside 0 to 9
 * @retval VQD_REOPEN_EXHAUSTED the budget of re-open searches is spent; if it was spent before, the call waits for 1 s
 */
VQD_API int vqdReadFromDevice(int n, uint16_t** images, FrameInfo* info);

/**
 * Counts and stamps a frame of the colour camera, which the application reads itself.
 * @param n     device number
 * @param image the application's image; the library only tests whether it is null
 * @param info  receives the colour stream's information
 * @return ::VQD_OK; prints "RGB error" and returns 0 when a pointer is null or the application has not set
 * m_nRGBCamOpen[n]
 */
VQD_API int vqdReadFromDevice_RGB888(int n, void* image, FrameInfo* info);

/** @} */
/**
 * @name Parameter image and EEPROM
 * @{
 */

/**
 * Copies the host's parameter image.
 * @param n   device number
 * @param out receives ::VQD_IMAGE_BYTES bytes
 * @return ::VQD_OK; 0 when the camera is not open or @p out is null
 */
VQD_API int vqdParameterData_Load(int n, unsigned char* out);

/**
 * Reads the camera's EEPROM again, derives every setting from it (see LoadParameter()) and copies the parameter image.
 * @param n   device number
 * @param out receives ::VQD_IMAGE_BYTES bytes
 * @return ::VQD_OK, also when factory settings stand in for an EEPROM that cannot be read; 0 when the camera is not
 * open or @p out is null
 */
VQD_API int vqdEEPROM_ParameterData_Load(int n, unsigned char* out);

/**
 * Replaces bytes 0 to 127 of the host's parameter image and writes them to the camera's EEPROM.
 *
 * The camera works with them once an image is sent, by the next setter or grab start. The decoded values follow at the
 * next load. Only the line "EEPROM Parameter Save Success." shows that the camera has taken the bytes.
 * @param n    device number
 * @param data ::VQD_EEPROM_BYTES bytes
 * @return ::VQD_OK, also when the camera refuses the write; ::VQD_NO_HANDLE or ::VQD_NOT_OPEN when the camera is not
 * open; 0 when @p data is null
 */
VQD_API int vqdEEPROM_ParameterData_Save(int n, const unsigned char* data);

/**
 * Sends a whole parameter image to the camera and, once it is sent, keeps it as the host's copy. Takes 300 ms.
 * @param n     device number
 * @param image ::VQD_IMAGE_BYTES bytes; it may be the host's own copy, stCamParam[n].image
 * @return ::VQD_OK; on a failure it prints the step that failed, leaves the host's copy as it is and returns 0
 */
VQD_API int vqdWriteToDevice(int n, const unsigned char* image);

/** @} */
/**
 * @name Settings
 * A setter edits the host's parameter image and sends all of it, which takes 300 ms or more. It returns ::VQD_OK, or
 * prints a line and returns 0. When the image cannot be sent, the edit stays in the host's copy. A getter decodes the
 * host's copy and sends nothing; for a camera that is not open it prints a line and returns 0.
 *
 * Settings hold until the camera is listed again. vqdEEPROM_ParameterData_Save() keeps them in the camera.
 * @{
 */

/** Does nothing and returns 0, because the cameras set their integration time themselves. */
VQD_API int vqdSetIntegrationTime(int n, int value);
/** Integration time, 0 to 25500 in steps of 100, in the camera's own unit. */
VQD_API int vqdGetIntegrationTime(int n);

/**
 * Sets the modulation frequency, which gives the unambiguous range: 15 m at 10 MHz, 7.5 m at 20 MHz, 5 m at 30 MHz.
 * @param n   device number
 * @param mhz 10 for RS models, 20 or 30 for HT110 and HT120; other models accept any value and keep their frequency
 * @return ::VQD_OK; 0, without a line, also for a frequency that the model does not have
 */
VQD_API int vqdSetModuleFrequency(int n, int mhz);
/**
 * Modulation frequency in MHz; 0 also when the image holds an unknown code. Refreshes nModFrequency and nMaxDistance.
 */
VQD_API int vqdGetModuleFrequency(int n);

/** Sets the depth offset. Outside -255 to 255 it prints the range and returns 0. */
VQD_API int vqdSetOffset(int n, int offset);
/** Depth offset, -255 to 255. */
VQD_API int vqdGetOffset(int n);

/** Sets the scatter threshold, 0 to 255. Only the low byte of @p value counts. */
VQD_API int vqdSetScatterThreshold(int n, int value);
/** Scatter threshold, 0 to 255, also of a camera that is not open. */
VQD_API int vqdGetScatterThreshold(int n);
/** Sets the check threshold, 0 to 255. Only the low byte of @p value counts. */
VQD_API int vqdSetCheckThreshold(int n, int value);
/** Check threshold, 0 to 255. */
VQD_API int vqdGetCheckThreshold(int n);

/**
 * Sets the depth range in millimetres. Only the low 16 bits of both limits count. When a limit is out of its range, it
 * prints that range and returns 0. Host-corrected models clip with the new range once vqdGetDepthRange() has read it.
 * @param n       device number
 * @param minimum at most the present maximum
 * @param maximum at least the present minimum, at most the unambiguous range of the modulation frequency
 */
VQD_API int vqdSetDepthRange(int n, int minimum, int maximum);
/**
 * Reads the depth range and makes it the one that the host clips with.
 * @param n       device number
 * @param minimum receives the smallest depth in millimetres; may be null
 * @param maximum receives the largest depth in millimetres; may be null
 * @return ::VQD_OK or 0
 */
VQD_API int vqdGetDepthRange(int n, int* minimum, int* maximum);

/**
 * Mirrors the image left to right (on 1). Both flips share a byte of the image, so the vertical one is sent along as it
 * was last set or read on any camera.
 */
VQD_API int vqdSetFlipHorizontal(int n, int on);
/** Whether the image is mirrored left to right: 1 or 0. */
VQD_API int vqdGetFlipHorizontal(int n);
/**
 * Mirrors the image top to bottom (on 1). Both flips share a byte of the image, so the horizontal one is sent along as
 * it was last set or read on any camera.
 */
VQD_API int vqdSetFlipVertical(int n, int on);
/** Whether the image is mirrored top to bottom: 1 or 0. */
VQD_API int vqdGetFlipVertical(int n);

/**
 * Sets the frame delay, which lowers the frame rate. Only the low byte of @p delay counts; above 100 it prints the
 * range and returns 0.
 */
VQD_API int vqdSetFPSDelay(int n, int delay);
/** Frame delay, 0 to 100. */
VQD_API int vqdGetFPSDelay(int n);

/**
 * Makes the camera one of several that light in turn. When a number is out of range, it prints that range and returns
 * 0.
 * @param n          device number
 * @param mode       1 on, any other value off
 * @param slaveCount number of slaves, 1 to 9
 * @param slaveID    the camera's own id, 0 to 9
 */
VQD_API int vqdSetMultiCamMode(int n, int mode, int slaveCount, int slaveID);
/** Switches multi-sync mode on (1) or off. It is the same switch as the mode of vqdSetMultiCamMode(). */
VQD_API int vqdSetMultiSyncMode(int n, int on);
/** Whether that switch is on: 1 or 0; -4 when the image holds neither. Works for a camera that is not open, too. */
VQD_API int vqdGetMultiSyncMode(int n);

/** Switches illumination and capture on (1) or off, as grab start and grab stop do. */
VQD_API int vqdIlluminationOnOff(int n, int on);

/** Sensor temperature from the header of the latest frame, in steps of 0.0625; 0.0 before the first frame. */
VQD_API double vqdGetTemperature(int n);
/**
 * Logic version from the header of the latest frame; 0 and 0 before the first frame.
 * @param n      device number
 * @param first  receives the first number; may be null
 * @param second receives the second number; may be null
 * @return ::VQD_OK or 0
 */
VQD_API int vqdGetLogincVersion(int n, int* first, int* second);

/**
 * Removes pixels at depth edges (on 1): on the host for host-corrected models, otherwise in the camera. The host's
 * switch is one for all cameras. A model that corrects in the camera keeps its setting when @p on is neither 0 nor 1.
 */
VQD_API int vqdSetRemoveEdge(int n, int on);
/** Whether edges are removed: 1 or 0, or ::m_bRemoveEdge as it is when the image holds an unknown code. */
VQD_API int vqdGetRemoveEdge(int n);
/**
 * Switches the camera's removal of motion blur on (1) or off.
 * @param n     device number
 * @param on    1 on, any other value off
 * @param level 0 to 255; only the low byte counts, and only together with "on"
 */
VQD_API int vqdSetRemoveMotionBlur(int n, int on, int level);
/**
 * Whether motion blur is removed: 1 or 0, or ::m_bRemoveMotionBlur as it is when the image holds an unknown code.
 * @param n     device number
 * @param level receives the level, 0 to 255; may be null
 */
VQD_API int vqdGetRemoveMotionBlur(int n, unsigned int* level);

/** @} */
/**
 * @name Filters
 * They work in place on the application's own images of w x h pixels. They do nothing when the width or the height is
 * below 1 or a pointer is null.
 * @{
 */

/** Sets depth to 0 where the amplitude is below threshold * ::fAmpScale. Only the low byte of @p threshold counts. */
VQD_API void vqdAmplitudeCheckFilter(const uint16_t* amplitude, uint16_t* depth, int threshold, int w, int h);
/**
 * Sets depth to 0 where the amplitude is below threshold / (depth^2 * ::fScatterScale). Only the low byte of
 * @p threshold counts.
 */
VQD_API void vqdScatteringCheckFilter(const uint16_t* amplitude, uint16_t* depth, int threshold, int w, int h);
/** Sets pixels below @p minimum or above @p maximum to 0. Only the low 16 bits of both count. */
VQD_API void vqdMinMaxCheckFilter(uint16_t* image, unsigned int minimum, unsigned int maximum, int w, int h);

/** @} */
/**
 * @name Lens and geometry
 * @{
 */

/**
 * Sets the depth lens and saves it to the EEPROM, together with every other setting of image bytes 0 to 127.
 *
 * The library computes with the exact values. The image stores them in steps: focal lengths and principal point in
 * steps of 0.1 up to 6553.5, p1 and p2 in steps of 0.01 up to 327.67, the others in steps of 0.001 up to 32.767. A
 * value between two steps is cut off towards 0; a value out of range is stored as the nearest possible one.
 * Undistortion follows at the next vqdSetUndistortion() or load.
 * @return ::VQD_OK, also when the camera refuses the write; 0 when the camera is not open
 */
VQD_API int vqdSetLensParameter(int n, LensIntrinsic intrinsic, LensDistortion distortion);
/**
 * Decodes the depth lens from the image.
 * @param n          device number
 * @param intrinsic  receives fx, fy, cx, cy; may be null
 * @param distortion receives k1, k2, k3, p1, p2, skew; may be null
 */
VQD_API int vqdGetLensParameter(int n, float* intrinsic, float* distortion);
/**
 * Sets the colour lens and saves it as vqdSetLensParameter() does, but with p1 and p2 in steps of 0.001 up to 32.767.
 */
VQD_API int vqdSetRGBLensParameter(int n, LensIntrinsic intrinsic, LensDistortion distortion);
/**
 * Decodes the colour lens from the image.
 * @param n          device number
 * @param intrinsic  receives fx, fy, cx, cy; may be null
 * @param distortion receives k1, k2, k3, p1, p2, skew; may be null
 */
VQD_API int vqdGetRGBLensParameter(int n, float* intrinsic, float* distortion);
/**
 * Sets the transform from the depth to the colour camera and saves it as vqdSetLensParameter() does. The image stores
 * it rounded to steps of 0.0001 up to 3.2767. Only r11, r12, r13 and r21 fit into the EEPROM.
 */
VQD_API int vqdSetExtrinsicParameter(int n, ExtrinsicParam extrinsic);
/**
 * Decodes the transform from the depth to the colour camera from the image.
 * @param n         device number
 * @param extrinsic receives 12 values, the matrix row by row, then the translation; may be null
 */
VQD_API int vqdGetExtrinsicParameter(int n, float* extrinsic);

/**
 * Sets how the frames of all cameras are undistorted, with the lens of camera @p n.
 * @param n    device number
 * @param mode 1 bilinear, but invalid where the four samples differ by more than ::m_nDepthGab; 2 bilinear; 3 nearest
 * sample; any other value leaves frames as they are
 * @return ::VQD_OK; 0 when the camera is not open, although the mode is then set all the same, or when the image cannot
 * be sent
 */
VQD_API int vqdSetUndistortion(int n, int mode);
/** Undistortion mode, 0 to 3, or ::m_nUndistortionMode as it is when the image holds an unknown code. */
VQD_API int vqdGetUndistortion(int n);
/**
 * Converts a pixel of the raw image to the pixel of the undistorted image that shows the same thing, which may lie
 * outside it. Column and row stay as they are when the lens model has no solution there.
 * @param n      device number
 * @param column column in the raw image; receives the one in the undistorted image
 * @param row    row in the raw image; receives the one in the undistorted image
 */
VQD_API void vqdGetUndistortPixel(int n, int* column, int* row);

/** Applies a transform to a point: R p + t. */
VQD_API void vqdXYZ3DConversion(Point3f* out, Point3f p, ExtrinsicParam e);
/**
 * Returns the inverse of a rotation, computed as the transposed cofactor matrix, with the translation negated but not
 * rotated.
 */
VQD_API ExtrinsicParam vqdGetReverse(ExtrinsicParam e);
/**
 * Converts a camera-space point in metres to column, row and depth in millimetres. Column and row are 0.5 too large, so
 * that cutting off the fraction gives the nearest pixel.
 */
VQD_API void vqdCameraSpacePointToDepth(Point3f* out, Point3f p, LensIntrinsic k);
/** Converts column, row and depth in millimetres to a camera-space point in metres: X right, Y up, Z ahead. */
VQD_API void vqdDepthPointToCameraSpace(Point3f* out, Point3f p, LensIntrinsic k);
/**
 * Converts a depth image to camera-space points in metres, along the rays of ::pPointCloud.
 * @param depth  width x height pixels in millimetres
 * @param points receives as many points, but at most ::VQD_PIXELS; those beyond stay as they are
 * @param width  columns of the image
 * @param height rows of the image
 */
VQD_API void vqdDepthFrameToCameraSpace(const uint16_t* depth, Point3f* points, int width, int height);

/** @} */
/**
 * @name Calibration tables and switches
 * A table is written as raw bytes, with 16-bit values big-endian. A save sends them in chunks and waits after each, so
 * it takes the time that is given here, or up to 1 s for each chunk when the camera does not answer. It does not notice
 * a chunk that the camera refuses. Saves and loads return ::VQD_OK, or 0 when the camera is not open or the buffer is
 * null.
 *
 * libusb on Linux refuses control transfers above 4096 bytes. vqdLoadWigglingData(), vqdLoadFPPNData_4x4() and
 * vqdLoadFPPNData_5x5() read more than that in a single request, so with such a libusb they deliver zeros.
 * @{
 */

/** Writes the wiggling table: 3840 bytes, 75 ms. */
VQD_API int vqdSaveWigglingData(int n, const unsigned char* data);
/**
 * Writes the long wiggling table: 8192 bytes, 320 ms. When the low byte of @p flag is not 0, it is that of the second
 * frequency.
 */
VQD_API int vqdSaveWigglingData2(int n, const unsigned char* data, int flag);
/** Writes the plain FPPN table: 12288 bytes, 240 ms. */
VQD_API int vqdSaveFPPNData(int n, const unsigned char* data);
/** Writes the FPPN table of 4 x 4 blocks: 9600 bytes, 300 ms. Sends nothing when the low byte of @p flag is not 0. */
VQD_API int vqdSaveFPPNData_4x4(int n, const unsigned char* data, int flag);
/** Writes the FPPN table of 5 x 5 blocks: 6144 bytes, 192 ms. Sends nothing when the low byte of @p flag is not 0. */
VQD_API int vqdSaveFPPNData_5x5(int n, const unsigned char* data, int flag);
/** Writes the radial orthogonal table: 4096 bytes, 160 ms. */
VQD_API int vqdSaveOrthogonalData(int n, const unsigned char* data);

/**
 * Reads 8192 bytes as a wiggling table, from where the orthogonal table is written.
 * @param n      device number
 * @param values receives 4096 values
 * @param first  refused when it is negative, otherwise without effect
 * @param size   refused when it is above 8192, otherwise without effect
 */
VQD_API int vqdLoadWigglingData(int n, uint16_t* values, int first, int64_t size);
/** Reads the FPPN table of 4 x 4 blocks into 4800 values, 0 to 65535. */
VQD_API int vqdLoadFPPNData_4x4(int n, int* values);
/**
 * Reads 6144 bytes as an FPPN table of 5 x 5 blocks into 3072 values, -255 to 255, from where that of 4 x 4 blocks is
 * written.
 */
VQD_API int vqdLoadFPPNData_5x5(int n, int* values);
/**
 * Reads the radial orthogonal table into 2048 factors, 0 to 6.5535. When the read fails, it prints "loadorthogonal
 * error", leaves the factors as they are and returns 0.
 */
VQD_API int vqdLoadOrthogonalData(int n, double* factors);

/** Adds the FPPN offsets to the depth (on 1): on the host for host-corrected models, otherwise in the camera. */
VQD_API int vqdSetFPPN(int n, int on);
/** Whether the FPPN correction is on: 1 or 0, or ::m_bFPPN as it is when the image holds an unknown code. */
VQD_API int vqdGetFPPN(int n);
/**
 * Multiplies the depth by the orthogonal factors (on 1): on the host for host-corrected models, otherwise in the
 * camera.
 */
VQD_API int vqdSetOrthogonal(int n, int on);
/**
 * Whether the orthogonal correction is on: 1 or 0, or ::m_bOrthogonal as it is when the image holds an unknown code.
 */
VQD_API int vqdGetOrthogonal(int n);

/** @} */
/**
 * @name Exported tables, switches and values
 * An array of ten has an entry for each device number.
 * @{
 */

VQD_API extern DevInfo m_stDevInfo[VQD_MAX_DEVICES]; /**< identities; written by enumeration and listing */
VQD_API extern CamParam stCamParam[VQD_MAX_DEVICES]; /**< parameter images and decoded values */
VQD_API extern int m_nDeviceOpen[VQD_MAX_DEVICES];   /**< 1 once a re-open found the camera; 0 after close or failure */
VQD_API extern int m_nDeviceCount; /**< cameras that the latest enumeration found, less those released since */
/**
 * Budget of re-open searches: 600 at first, and again once a re-open has found its camera. A search that fails costs 1,
 * and below 500 the library does not search. The application may raise it.
 */
VQD_API extern int m_nReopenTime;
VQD_API extern int m_nInit;                                 /**< 1 once the tables are initialised */
VQD_API extern int m_nUnInit;                               /**< 1 once a camera has been closed */
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
VQD_API extern int m_nTimeStampStartFlag;              /**< 1 once a depth frame was stamped; 0 restarts the stream */
VQD_API extern int m_nTimeStampStartFlag_RGB;          /**< 1 once a colour frame was stamped; 0 restarts the stream */
VQD_API extern double m_dTemperature[VQD_MAX_DEVICES]; /**< sensor temperature from the latest header, 0.0625 a count */
VQD_API extern uint16_t m_nLogicver[2]
                                   [VQD_MAX_DEVICES]; /**< logic version from the latest header: first, second number */
VQD_API extern int64_t t_Begin;                       /**< for the application; unused by the library */
VQD_API extern int64_t t_Stop;                        /**< for the application; unused by the library */
VQD_API extern int64_t t_End;                         /**< for the application; unused by the library */
VQD_API extern int64_t liFrequency;                   /**< for the application; unused by the library */

VQD_API extern int m_nRGBCamOpen[VQD_MAX_DEVICES]; /**< not 0 while the colour camera is open; set by the application */
VQD_API extern int m_nRGB_WIDTH;                   /**< for the application; unused by the library */
VQD_API extern int m_nRGB_HEIGHT;                  /**< for the application; unused by the library */
VQD_API extern unsigned char m_nRGBCAM_No[VQD_MAX_DEVICES]; /**< for the application; unused by the library */

VQD_API extern uint16_t m_nDepthGab;    /**< largest depth spread in mm that mode 1 interpolates; 300, then as loaded */
VQD_API extern uint8_t m_nEdgeThres;    /**< smallest amplitude at which an edge pixel is removed; 32 at first */
VQD_API extern uint8_t m_nEdgeDepth;    /**< largest depth spread in mm that is not an edge; 100 at first */
VQD_API extern float fAmpScale;         /**< scale of the amplitude check filter; 1.3 at first */
VQD_API extern float fScatterScale;     /**< scale of the scattering check filter; 1.6e-6 at first */
VQD_API extern float fChgAxis_Amp;      /**< amplitude that resampling interpolated last */
VQD_API extern float fChgAxis_Dep1;     /**< depth that resampling interpolated last */
VQD_API extern int m_bRemoveEdge;       /**< edge removal, on when 1; of the camera set, read or loaded last */
VQD_API extern int m_bRemoveMotionBlur; /**< motion-blur removal, on when 1; of the camera set, read or loaded last */
VQD_API extern int m_bHorizontal;       /**< horizontal flip; of the camera set, read or loaded last */
VQD_API extern int m_bVertical;         /**< vertical flip; of the camera set, read or loaded last */
VQD_API extern int m_bFPPN;             /**< FPPN correction, on when 1; of the camera set, read or loaded last */
VQD_API extern int m_bOrthogonal;       /**< orthogonal correction, on when 1; of the camera set, read or loaded last */
VQD_API extern int m_nUndistortionMode; /**< 1 gated bilinear, 2 bilinear, 3 nearest, any other value none */

VQD_API extern float m_fIntrinsicParam[VQD_MAX_DEVICES][4];    /**< depth lens: fx, fy, cx, cy in pixels */
VQD_API extern float m_fDistorParam[VQD_MAX_DEVICES][6];       /**< depth lens: k1, k2, k3, p1, p2, skew */
VQD_API extern float m_fRGBIntrinsicParam[VQD_MAX_DEVICES][4]; /**< colour lens: fx, fy, cx, cy in pixels */
VQD_API extern float m_fRGBDistorParam[VQD_MAX_DEVICES][6];    /**< colour lens: k1, k2, k3, p1, p2, skew */
VQD_API extern float m_fExtrinsicParam[VQD_MAX_DEVICES][12];   /**< depth to colour: rotation by rows, translation */
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

/** @} */
/**
 * @name Helpers
 * The steps that the functions above are made of. Applications seldom need them.
 * @{
 */

/** Initialises the tables, once in a process. @return 1 the first time, 0 later */
VQD_API int InitParameter(void);

/** Sets ::m_nUnInit. */
VQD_API void UnInitParameter(void);

/**
 * Checks whether a camera is open.
 * @return ::VQD_OK; prints "VQD device handle error." and returns ::VQD_NO_HANDLE when it is marked open but has no
 * handle; prints "VQD Device not opened." and returns ::VQD_NOT_OPEN otherwise
 */
VQD_API int VQDDevice_ErrorChecked(int n);

/** Takes libusb's list of devices. @return ::VQD_OK, or prints a line and returns ::VQD_NOT_OPEN */
VQD_API int GetUsbDevice(void);

/** Says whether a USB device is one of the library's cameras, by vendor and product id: 1 or 0. */
VQD_API int device_is_of_interest(struct libusb_device* dev);

/**
 * Enumerates: opens a handle to every camera and gives out device numbers in the order of libusb's list.
 * @return ::VQD_OK; ::VQD_NO_HANDLE when there is no camera or no list; ::VQD_NOT_OPEN when a camera cannot be opened
 */
VQD_API int GetVQDDeviceHandle(void);

/**
 * Stops grabbing and closes the handle of @p n. With @p exitSession 1 it also ends the library's use of libusb's
 * context when no camera is left open, as vqdDeviceClose() does.
 */
VQD_API void UnInitialize_vqdapi(int n, int exitSession);

/**
 * Closes the camera, searches for it every 100 ms while the budget of ::m_nReopenTime lasts, and starts it again with
 * its settings. The other cameras stay untouched. Takes between 2 and 4 s when the camera is there, and some 10 s when
 * it stays away.
 * @return ::VQD_OK; 0 when the camera does not start; ::VQD_NOT_OPEN for a number outside 0 to 9;
 * ::VQD_REOPEN_EXHAUSTED when the budget is spent
 */
VQD_API int vqdDeviceReOpen(int n);

/** Resets the camera's read buffer. @return the bytes of the request, 64; prints a line and returns 0 on a failure */
VQD_API int vqdReadBufReset(int n);

/**
 * Prepares the camera for parameter images. Takes 500 ms.
 * @return the bytes of the last request, 64; prints a line and returns 0 on a failure
 */
VQD_API int vqdWriteBufInit(int n);

/**
 * Reads the EEPROM, or prints a line and takes factory settings instead, and derives everything from it: settings,
 * lenses, tables, switches and maps.
 * @return ::VQD_OK; 0 for a number outside 0 to 9
 */
VQD_API int LoadParameter(int n);

/** Writes image bytes 0 to 127 to the EEPROM. @return ::VQD_OK, also when the camera refuses; 0 outside 0 to 9 */
VQD_API int SaveParameter(int n);

/**
 * Fills the undistortion maps for camera @p n in the present mode.
 * @return ::VQD_OK, also when the mode needs no maps; 0 when the camera is not open
 */
VQD_API int BuildUndistortionMap(int n);

/**
 * Fills ::m_dOrthogonalData from the camera's radial table. When the factor of the corner pixel is not within 0 to 1,
 * it reads "./Orthogonal_Table.dat" instead.
 */
VQD_API void LoadOrthogonalTable(int n);

/** Fills ::pPointCloud with the rays of a lens. */
VQD_API void BuildPointCloudTable(LensIntrinsic k);

/** Sorts in ascending order, in place. */
VQD_API void DataSort(int* values, int count);

/** Rounds half up. Returns 0 when no int holds the result. */
VQD_API int Round(float value);

/** @} */
/**
 * @name libusb helpers
 * Each makes one libusb call on an open handle and prints nothing. For a null handle it returns LIBUSB_ERROR_NO_DEVICE,
 * or 0 where it returns an id or an address, or leaves the buffer as it is.
 * @{
 */

/** Reads the device descriptor. @return libusb's result */
VQD_API int usb_get_device_descriptor(struct libusb_device_handle* handle, struct libusb_device_descriptor* descriptor);
/** Vendor id from the device descriptor; 0 when it cannot be read. */
VQD_API uint16_t usb_getvendor(struct libusb_device_handle* handle);
/** Product id from the device descriptor; 0 when it cannot be read. */
VQD_API uint16_t usb_getproduct(struct libusb_device_handle* handle);
/** Reads the manufacturer string into @p buf of @p len bytes. @return @p buf */
VQD_API char* usb_get_VendorName(struct libusb_device_handle* handle, char* buf, int len);
/** Reads the product string into @p buf of @p len bytes. @return @p buf */
VQD_API char* usb_get_DeviceName(struct libusb_device_handle* handle, char* buf, int len);
/** Reads the USB serial-number string into @p buf of @p len bytes. @return @p buf */
VQD_API char* usb_get_SerialNumber(struct libusb_device_handle* handle, char* buf, int len);
/** Number of the bus that the device is on. */
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
/** Says whether a kernel driver holds an interface. @return 0 no, 1 yes, or libusb's negative error */
VQD_API int usb_kernel_driver_active(struct libusb_device_handle* handle, int interface_number);
/**
 * Reads a configuration descriptor, which the caller frees with usb_free_config_descriptor(). @return libusb's result
 */
VQD_API int usb_get_config_descriptor(struct libusb_device_handle* handle, uint8_t index,
                                      struct libusb_config_descriptor** descriptor);
/** Frees a configuration descriptor, which may be null. */
VQD_API void usb_free_config_descriptor(struct libusb_config_descriptor* descriptor);
/** Makes one control transfer, with the time-out in milliseconds. @return bytes moved, or libusb's negative error */
VQD_API int usb_control_transfer(struct libusb_device_handle* handle, uint8_t request_type, uint8_t request,
                                 uint16_t value, uint16_t index, unsigned char* data, uint16_t length,
                                 unsigned int timeout);
/** Makes one bulk transfer, with the time-out in milliseconds. @return 0, or libusb's negative error */
VQD_API int usb_bulk_transfer(struct libusb_device_handle* handle, unsigned char endpoint, unsigned char* data,
                              int length, int* transferred, unsigned int timeout);

/** @} */

#ifdef __cplusplus
}
#endif

#endif /* VQD_API_H */
