// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// One libusb call each. They report libusb's result unchanged, print nothing and keep no state.
#include <libusb.h>

#include "VQD_API.h"

int usb_get_device_descriptor(struct libusb_device_handle* handle, struct libusb_device_descriptor* descriptor)
{
    if (handle == nullptr)
        return LIBUSB_ERROR_NO_DEVICE;
    if (descriptor == nullptr)
        return LIBUSB_ERROR_INVALID_PARAM;
    return libusb_get_device_descriptor(libusb_get_device(handle), descriptor);
}

// All fields are 0 if it cannot be read.
static libusb_device_descriptor descriptorOf(libusb_device_handle* handle)
{
    libusb_device_descriptor descriptor{};
    usb_get_device_descriptor(handle, &descriptor);
    return descriptor;
}

uint16_t usb_getvendor(struct libusb_device_handle* handle)
{
    return descriptorOf(handle).idVendor;
}

uint16_t usb_getproduct(struct libusb_device_handle* handle)
{
    return descriptorOf(handle).idProduct;
}

static char* readString(libusb_device_handle* handle, uint8_t index, char* buf, int len)
{
    if (handle != nullptr && buf != nullptr && len > 0)
        libusb_get_string_descriptor_ascii(handle, index, reinterpret_cast<unsigned char*>(buf), len);
    return buf;
}

char* usb_get_VendorName(struct libusb_device_handle* handle, char* buf, int len)
{
    return readString(handle, descriptorOf(handle).iManufacturer, buf, len);
}

char* usb_get_DeviceName(struct libusb_device_handle* handle, char* buf, int len)
{
    return readString(handle, descriptorOf(handle).iProduct, buf, len);
}

char* usb_get_SerialNumber(struct libusb_device_handle* handle, char* buf, int len)
{
    return readString(handle, descriptorOf(handle).iSerialNumber, buf, len);
}

uint8_t usb_get_busnumber(struct libusb_device_handle* handle)
{
    return handle == nullptr ? 0 : libusb_get_bus_number(libusb_get_device(handle));
}

uint8_t usb_get_devaddr(struct libusb_device_handle* handle)
{
    return handle == nullptr ? 0 : libusb_get_device_address(libusb_get_device(handle));
}

int usb_get_max_iso_packet_size(struct libusb_device_handle* handle, unsigned char endpoint)
{
    if (handle == nullptr)
        return LIBUSB_ERROR_NO_DEVICE;
    return libusb_get_max_iso_packet_size(libusb_get_device(handle), endpoint);
}

int usb_claim_interface(struct libusb_device_handle* handle, int interface_number)
{
    return handle == nullptr ? LIBUSB_ERROR_NO_DEVICE : libusb_claim_interface(handle, interface_number);
}

int usb_set_interface_alt_setting(struct libusb_device_handle* handle, int interface_number, int alternate_setting)
{
    if (handle == nullptr)
        return LIBUSB_ERROR_NO_DEVICE;
    return libusb_set_interface_alt_setting(handle, interface_number, alternate_setting);
}

int usb_kernel_driver_active(struct libusb_device_handle* handle, int interface_number)
{
    return handle == nullptr ? LIBUSB_ERROR_NO_DEVICE : libusb_kernel_driver_active(handle, interface_number);
}

int usb_get_config_descriptor(struct libusb_device_handle* handle, uint8_t index,
                              struct libusb_config_descriptor** descriptor)
{
    if (handle == nullptr)
        return LIBUSB_ERROR_NO_DEVICE;
    if (descriptor == nullptr)
        return LIBUSB_ERROR_INVALID_PARAM;
    return libusb_get_config_descriptor(libusb_get_device(handle), index, descriptor);
}

void usb_free_config_descriptor(struct libusb_config_descriptor* descriptor)
{
    if (descriptor != nullptr)
        libusb_free_config_descriptor(descriptor);
}

int usb_control_transfer(struct libusb_device_handle* handle, uint8_t request_type, uint8_t request, uint16_t value,
                         uint16_t index, unsigned char* data, uint16_t length, unsigned int timeout)
{
    if (handle == nullptr)
        return LIBUSB_ERROR_NO_DEVICE;
    return libusb_control_transfer(handle, request_type, request, value, index, data, length, timeout);
}

int usb_bulk_transfer(struct libusb_device_handle* handle, unsigned char endpoint, unsigned char* data, int length,
                      int* transferred, unsigned int timeout)
{
    if (handle == nullptr)
        return LIBUSB_ERROR_NO_DEVICE;
    return libusb_bulk_transfer(handle, endpoint, data, length, transferred, timeout);
}
