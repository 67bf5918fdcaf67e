// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Finding the camera of one device number again. With one camera this is a plain enumeration. With several, each camera
// comes back to its own number: by its place on the bus, else by its serial number, else by order.
#include "device/find_camera.h"

#include <cstring>
#include <optional>

#include "config/eeprom.h"
#include "config/param_image.h"
#include "device/base/device_state.h"
#include "device/base/message.h"
#include "device/contexts.h"
#include "device/discovery.h"

static constexpr int kMaxCandidates = 32;
static constexpr char kNoSerial[] = "00000000000000"; // an EEPROM without one
static constexpr int kStaleSearches = 10; // in a row without a camera that sysfs shows: no udev event will come

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

// Some buses report the same place for several cameras, and it then tells nothing about them.
static bool isPlaceShared(int n)
{
    for (int other = 0; other < VQD_MAX_DEVICES; ++other)
        if (other != n && isSamePlace(m_stIdentity[n], m_stIdentity[other]))
            return true;
    return false;
}

// The device that number n talks to. It is all that is known of a closed number whose camera has no serial number.
static libusb_device* deviceOf(int n)
{
    if (HandleOf(n) != nullptr)
        return libusb_get_device(HandleOf(n));
    return m_stIdentity[n].closed && !isNamed(n) ? m_stUsbSlot[n].pDevice : nullptr;
}

// The address alone is not enough, because another camera may have it after a replug; so the ids must match too.
static bool isAtPlaceOf(int n, libusb_device* device, const libusb_device_descriptor& descriptor)
{
    const CameraIdentity& known = m_stIdentity[n];
    if (isPlaceShared(n))
        return deviceOf(n) == device;
    return known.known && known.bus == libusb_get_bus_number(device) &&
           known.address == libusb_get_device_address(device) && known.vendorId == descriptor.idVendor &&
           known.productId == descriptor.idProduct;
}

// Whether the camera of number n is not where it was. The handle is no evidence: it survives an unplug until a read
// fails, and is also absent after a deliberate close.
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

// How well a device matches the camera of a number, worst first.
enum class Match {
    kNone, // no camera, or it is where the camera of another number is or was
    kOtherProduct,
    kSameProduct,
    kSamePlace,
};

static Match matchOf(int n, libusb_device* device)
{
    if (!device_is_of_interest(device))
        return Match::kNone;
    libusb_device_descriptor descriptor{};
    libusb_get_device_descriptor(device, &descriptor);
    for (int other = 0; other < VQD_MAX_DEVICES; ++other)
        if (other != n && isAtPlaceOf(other, device, descriptor))
            return Match::kNone;
    if (isAtPlaceOf(n, device, descriptor))
        return Match::kSamePlace;
    return descriptor.idProduct == m_stIdentity[n].productId ? Match::kSameProduct : Match::kOtherProduct;
}

// The devices that match best, in list order.
struct Candidates {
    Match match;
    int count;
    libusb_device* devices[kMaxCandidates];
};

static Candidates findCandidates(int n)
{
    Candidates best{};
    for (int i = 0; i < m_nDevListCount; ++i) {
        const Match match = matchOf(n, m_pDevList[i]);
        if (match > best.match) {
            best.match = match;
            best.count = 0;
        }
        if (match != Match::kNone && match == best.match && best.count < kMaxCandidates)
            best.devices[best.count++] = m_pDevList[i];
    }
    return best;
}

static bool hasSerial(int n, const char* serial)
{
    return isNamed(n) && strcmp(serial, m_stIdentity[n].serial) == 0;
}

// Whether the camera is missing and the application still wants it.
static bool isLost(int n)
{
    return !m_stIdentity[n].closed && isMissing(n);
}

// Whether a candidate may be the camera of number `other`. A closed number waits for no camera, but one that can be
// told by its serial number belongs to nobody else.
static bool isRival(int other)
{
    return isMissing(other) && (!m_stIdentity[other].closed || isNamed(other));
}

// Returns the number other than n that a camera with this serial number belongs to, or -1.
static int rivalWith(const char* serial, int n)
{
    for (int other = 0; other < VQD_MAX_DEVICES; ++other)
        if (other != n && isRival(other) && hasSerial(other, serial))
            return other;
    return -1;
}

// The device that a number is to get: null if there is none. The handle is open already if the choice needed one.
struct Choice {
    libusb_device* device;
    libusb_device_handle* handle;
};

// The candidate with the serial number of number n. Unknown serials are handed out in order to the lost numbers whose
// own camera is not among the candidates. Returns nothing after "Error in openning device."
static std::optional<Choice> chooseBySerial(int n, const Candidates& candidates)
{
    int before = 0;
    for (int other = 0; other < n; ++other)
        before += isLost(other);

    libusb_device* strangers[kMaxCandidates];
    int strangerCount = 0;
    for (int i = 0; i < candidates.count; ++i) {
        libusb_device* const device = candidates.devices[i];
        libusb_device_handle* handle = nullptr;
        if (libusb_open(device, &handle) != 0) {
            PrintLine("Error in openning device.");
            return std::nullopt;
        }
        uint8_t block[VQD_EEPROM_BYTES];
        char serial[sizeof CameraIdentity::serial];
        ReadEeprom(handle, block);
        RenderSerial(block, serial);
        if (hasSerial(n, serial))
            return Choice{device, handle};
        libusb_close(handle);
        const int owner = rivalWith(serial, n);
        if (owner < 0)
            strangers[strangerCount++] = device;
        else if (owner < n && isLost(owner))
            --before;
    }
    if (before < 0 || before >= strangerCount)
        return Choice{};
    return Choice{strangers[before], nullptr};
}

// A number that never had a camera gets the one at its own position, as a listing would give it.
static Choice chooseByPosition(int n)
{
    int position = 0;
    for (int i = 0; i < m_nDevListCount; ++i)
        if (device_is_of_interest(m_pDevList[i]) && position++ == n)
            return {matchOf(n, m_pDevList[i]) != Match::kNone ? m_pDevList[i] : nullptr, nullptr};
    return {};
}

// Whether a candidate of number n may as well be another number's camera.
static bool hasRivals(int n)
{
    if (isPlaceShared(n))
        return true;
    for (int other = 0; other < VQD_MAX_DEVICES; ++other)
        if (other != n && isRival(other))
            return true;
    return false;
}

static std::optional<Choice> choose(int n)
{
    if (!m_stIdentity[n].known)
        return chooseByPosition(n);
    const Candidates candidates = findCandidates(n);
    if (candidates.count == 0)
        return Choice{};
    if (candidates.match == Match::kSamePlace || (candidates.count == 1 && !hasRivals(n)))
        return Choice{candidates.devices[0], nullptr};
    return chooseBySerial(n, candidates);
}

static int takeCamera(int n)
{
    const std::optional<Choice> choice = choose(n);
    if (!choice)
        return VQD_NOT_OPEN;
    if (choice->device == nullptr)
        return VQD_NO_HANDLE;
    if (choice->handle == nullptr)
        return OpenIntoSlot(n, choice->device) ? VQD_OK : VQD_NOT_OPEN;
    FillSlot(n, choice->device, choice->handle);
    return VQD_OK;
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
        unlisted = {}; // fresh contexts did not help; ten more searches pass before the next
    if (!listed)
        return VQD_NO_HANDLE;
    const int result = takeCamera(n);
    if (result != VQD_NOT_OPEN)
        ReleaseDeviceList();
    if (result == VQD_NO_HANDLE)
        m_stIdentity[n].closed = false; // asked for but not there, so it waits for its camera from now on
    m_nDeviceCount = SlotsWithHandle();
    return result;
}
