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

/** Three floats: a depth-space point (column, row, depth in mm) or a camera-space point (X right, Y up, Z forward, in
 * m). */
typedef struct Point3f {
    float x, y, z;
} Point3f;

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
 * @return ::VQD_OK, or -2: libusb could not start, no camera, more than 10 cameras, or a null pointer
 */
VQD_API int vqdGetDeviceList(DevInfo* list, int* count);

/**
 * Claims a listed camera and makes it ready to grab. Takes 100 ms.
 * @return ::VQD_OK, or 0 after a message; the device number is empty then and must be listed again
 */
VQD_API int vqdDeviceOpen(int n);

/**
 * Stops grabbing, closes the camera's handle and, with the last camera, gives libusb's default context back.
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
 * camera is re-opened (see vqdDeviceReOpen()) and goes on with its settings. Blocks until the frame is there: up to 3 s
 * a transfer, and up to some 10 s more for a re-open.
 * @param n      device number
 * @param images two caller-owned images of 320 x 240 uint16: amplitude, then depth in millimetres, 0 invalid
 * @param info   receives the frame's information
 * @return ::VQD_OK: a frame was handled (after a wrong start code the images are left as they were); 0:
 * ::m_nReadingStop is 1, a null pointer, or the re-open failed; -2: device number outside 0 to 9; -3: the re-open
 * budget is spent (after a pause of 1 s when it was spent already)
 */
VQD_API int vqdReadFromDevice(int n, uint16_t** images, FrameInfo* info);

/* ------------------------------------------------------------------------------------------------------------------------
 * Parameter image and EEPROM
 */

/**
 * Copies the host's parameter image.
 * @param out receives 512 bytes
 * @return ::VQD_OK; 0 when the camera is not open or @p out is null
 */
VQD_API int vqdParameterData_Load(int n, unsigned char* out);

/**
 * Reads the camera's EEPROM anew, derives every setting from it (see LoadParameter()) and copies the parameter image.
 * @param out receives 512 bytes
 * @return ::VQD_OK; 0 when the camera is not open or @p out is null
 */
VQD_API int vqdEEPROM_ParameterData_Load(int n, unsigned char* out);

/**
 * Replaces image bytes 0 to 127 and writes them to the camera's EEPROM. The camera's present settings and the decoded
 * values stay as they are until the next load.
 * @param data 128 bytes
 * @return ::VQD_OK, also when the camera refuses the write ("EEPROM Parameter Save Success." is missing then); -1 or -2
 * of the device check; 0 when @p data is null
 */
VQD_API int vqdEEPROM_ParameterData_Save(int n, const unsigned char* data);

/**
 * Sends a whole parameter image to the camera and, once it is sent, keeps it as the host's copy. Takes 300 ms.
 * @param image 512 bytes; it may be the host's own copy, stCamParam[n].image
 * @return ::VQD_OK or 0; after a failure the host's copy is as the caller left it
 */
VQD_API int vqdWriteToDevice(int n, const unsigned char* image);

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

VQD_API extern uint16_t m_nDepthGab; /**< largest depth spread in mm that gated resampling interpolates, from 300 */
VQD_API extern uint8_t m_nEdgeThres; /**< least amplitude at which an edge pixel is removed, from 32 */
VQD_API extern uint8_t m_nEdgeDepth; /**< largest depth spread in mm that is not an edge, from 100 */
VQD_API extern float fAmpScale;      /**< scale of the amplitude check filter, from 1.3 */
VQD_API extern float fScatterScale;  /**< scale of the scattering check filter, from 1.6e-6 */
VQD_API extern float fChgAxis_Amp;   /**< amplitude that resampling interpolated last */
VQD_API extern float fChgAxis_Dep1;  /**< depth that resampling interpolated last */
VQD_API extern int m_bRemoveEdge;    /**< edge removal, on when 1; of the camera set or loaded last */
VQD_API extern int
    m_bRemoveMotionBlur;          /**< motion-blur removal in the camera, on when 1; of the one set or loaded last */
VQD_API extern int m_bHorizontal; /**< horizontal flip that was set or read last */
VQD_API extern int m_bVertical;   /**< vertical flip that was set or read last */
VQD_API extern int m_bFPPN;       /**< FPPN correction, on when 1; of the camera set or loaded last */
VQD_API extern int m_bOrthogonal; /**< orthogonal correction, on when 1; of the camera set or loaded last */
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
