// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Finding the camera of one device number again. With one camera this is a plain enumeration. With several, each camera
// comes back to its own number: by its place on the bus, else by its serial number, else by order.
#include "device/find_camera.h"

#include <cstring>

#include "config/eeprom.h"
#include "config/param_image.h"
#include "device/contexts.h"
#include "device/base/device_state.h"
#include "device/discovery.h"
#include "device/base/message.h"

static constexpr int kMaxCandidates = 32;
static constexpr char kNoSerial[] = "00000000000000"; // an EEPROM without one

static constexpr int kStaleSearches = 10; // without a camera that sysfs shows: no udev event will come

static bool isSamePlace(const CameraIdentity& a, const CameraIdentity& b)
{
    return a.known && b.known && a.bus == b.bus && a.address == b.address && a.vendorId == b.vendorId &&
           a.productId == b.productId;
}

// Whether the camera of number n can be told from all others by its serial number.
static bool isNamed(int n)
{
    return m_stIdentity[n].serial[0] != '\0' && strcmp(m_stIdentity[n].serial, kNoSerial) != 0;
}

// Some buses report one place for several cameras, which then tells nothing about them.
static bool isPlaceShared(int n)
{
    for (int other = 0; other < VQD_MAX_DEVICES; ++other)
        if (other != n && isSamePlace(m_stIdentity[n], m_stIdentity[other]))
            return true;
    return false;
}

// The device that number n talks to. Of a closed number whose camera has no serial number, it is all that is known.
static libusb_device* deviceOf(int n)
{
    if (HandleOf(n) != nullptr)
        return libusb_get_device(HandleOf(n));
    return m_stIdentity[n].closed && !isNamed(n) ? m_stUsbSlot[n].pDevice : nullptr;
}

// A place alone is not enough: after a replug another camera may have the address.
static bool isAtPlaceOf(int n, libusb_device* device, const libusb_device_descriptor& descriptor)
{
    const CameraIdentity& known = m_stIdentity[n];
    if (isPlaceShared(n))
        return deviceOf(n) == device;
    return known.known && known.bus == libusb_get_bus_number(device) &&
           known.address == libusb_get_device_address(device) && known.vendorId == descriptor.idVendor &&
           known.productId == descriptor.idProduct;
}

// The camera of number n is not where it was. The handle is no evidence: it survives an unplug until a read fails, and
// is also absent after a deliberate close.
static bool isMissing(int n)
{
    if (!m_stIdentity[n].known)
        return false;
    for (int i = 0; i < m_nDevListCount; ++i) {
        libusb_device_descriptor descriptor{};
        libusb_get_device_descriptor(m_pDevList[i], &descriptor);
        if (isAtPlaceOf(n, m_pDevList[i], descriptor))
            return false;
    }
    return true;
}

// How well a device suits slot n: 3 it is where the camera was, 2 same product, 1 another product, 0 not to be taken:
// no camera, or it is where the camera of another number is or was.
static int suits(int n, libusb_device* device)
{
    if (!device_is_of_interest(device))
        return 0;
    libusb_device_descriptor descriptor{};
    libusb_get_device_descriptor(device, &descriptor);
    for (int other = 0; other < VQD_MAX_DEVICES; ++other)
        if (other != n && isAtPlaceOf(other, device, descriptor))
            return 0;
    if (isAtPlaceOf(n, device, descriptor))
        return 3;
    return descriptor.idProduct == m_stIdentity[n].productId ? 2 : 1;
}

// The devices that suit slot n best, in list order.
static int findCandidates(int n, libusb_device** candidates, int& suited)
{
    int count = 0;
    suited = 0;
    for (int i = 0; i < m_nDevListCount; ++i) {
        const int grade = suits(n, m_pDevList[i]);
        if (grade > suited) {
            suited = grade;
            count = 0;
        }
        if (grade > 0 && grade == suited && count < kMaxCandidates)
            candidates[count++] = m_pDevList[i];
    }
    return count;
}

static bool hasSerial(int n, const char* serial)
{
    return isNamed(n) && strcmp(serial, m_stIdentity[n].serial) == 0;
}

// Missing, and the application still wants it.
static bool isLost(int n)
{
    return !m_stIdentity[n].closed && isMissing(n);
}

// Whether a candidate may be the camera of number `other`. A closed number waits for none, but where its camera can be
// told by its serial number it is nobody else's.
static bool isRival(int other)
{
    return isMissing(other) && (!m_stIdentity[other].closed || isNamed(other));
}

// The number other than n that a camera with this serial number belongs to, or -1.
static int rivalWith(const char* serial, int n)
{
    for (int other = 0; other < VQD_MAX_DEVICES; ++other)
        if (other != n && isRival(other) && hasSerial(other, serial))
            return other;
    return -1;
}

// Takes the candidate with the serial number of slot n. Unknown serials are handed out in order to the lost numbers
// whose own camera is not among the candidates.
static int takeBySerial(int n, libusb_device** candidates, int count)
{
    int before = 0;
    for (int other = 0; other < n; ++other)
        before += isLost(other);

    libusb_device* strangers[kMaxCandidates];
    int strangerCount = 0;
    for (int i = 0; i < count; ++i) {
        libusb_device_handle* handle = nullptr;
        if (libusb_open(candidates[i], &handle) != 0) {
            PrintLine("Error in openning device.");
            return VQD_NOT_OPEN;
        }
        uint8_t block[VQD_EEPROM_BYTES];
        char serial[sizeof CameraIdentity::serial];
        ReadEeprom(handle, block);
        RenderSerial(block, serial);
        if (hasSerial(n, serial)) {
            FillSlot(n, candidates[i], handle);
            return VQD_OK;
        }
        libusb_close(handle);
        const int owner = rivalWith(serial, n);
        if (owner < 0)
            strangers[strangerCount++] = candidates[i];
        else if (owner < n && isLost(owner))
            --before;
    }
    if (before < 0 || before >= strangerCount)
        return VQD_NO_HANDLE;
    return OpenIntoSlot(n, strangers[before]) ? VQD_OK : VQD_NOT_OPEN;
}

// A number that never had a camera takes the one at its own position, as a listing would give it.
static int takeByPosition(int n)
{
    int position = 0;
    for (int i = 0; i < m_nDevListCount; ++i) {
        if (!device_is_of_interest(m_pDevList[i]) || position++ != n)
            continue;
        if (suits(n, m_pDevList[i]) == 0)
            return VQD_NO_HANDLE;
        return OpenIntoSlot(n, m_pDevList[i]) ? VQD_OK : VQD_NOT_OPEN;
    }
    return VQD_NO_HANDLE;
}

static int takeCamera(int n)
{
    if (!m_stIdentity[n].known)
        return takeByPosition(n);
    libusb_device* candidates[kMaxCandidates];
    int suited = 0;
    const int count = findCandidates(n, candidates, suited);
    if (count == 0)
        return VQD_NO_HANDLE;

    bool rivals = isPlaceShared(n);
    for (int other = 0; other < VQD_MAX_DEVICES; ++other)
        rivals = rivals || (other != n && isRival(other));
    const bool certain = suited == 3 || (count == 1 && !rivals);
    if (!certain)
        return takeBySerial(n, candidates, count);
    return OpenIntoSlot(n, candidates[0]) ? VQD_OK : VQD_NOT_OPEN;
}

static bool isStale(const UnlistedCameras& unlisted)
{
    for (int i = 0; i < unlisted.count; ++i)
        if (unlisted.cameras[i].searches >= kStaleSearches)
            return true;
    return false;
}

int FindCamera(int n, UnlistedCameras& unlisted)
{
    bool listed = GetUsbDevice() == VQD_OK;
    InitParameter();
    if (listed)
        FindUnlisted(unlisted);
    for (int attempt = 0; attempt < kFreshContexts; ++attempt) {
        if (!listed || !isStale(unlisted) || !TakeFreshContext(attempt > 0))
            continue;
        listed = GetUsbDevice() == VQD_OK;
        if (listed)
            FindUnlisted(unlisted);
    }
    if (isStale(unlisted))
        unlisted = {}; // it is not the context's fault; another ten searches before the next try
    if (!listed)
        return VQD_NO_HANDLE;
    const int result = takeCamera(n);
    if (result != VQD_NOT_OPEN)
        ReleaseDeviceList();
    if (result == VQD_NO_HANDLE)
        m_stIdentity[n].closed = false; // asked for and not there: it waits for its camera from now on
    m_nDeviceCount = SlotsWithHandle();
    return result;
}
