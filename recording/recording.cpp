// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The camera of a file: its metadata and attachments. Nothing in them is trusted.
#include "recording/recording.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstring>

#include "recording/layout.h"

namespace
{

constexpr size_t kOrthogonalBytes = 4096, kFppnBlocks = 4800;

[[noreturn]] void refuse(const std::filesystem::path& path, const std::string& what)
{
    throw Failure(kUsage, path.string() + ' ' + what);
}

std::string member(const mcap::Names& names, const char* key)
{
    const auto found = names.find(key);
    return found == names.end() ? "" : found->second;
}

std::optional<uint64_t> number(const std::string& text)
{
    uint64_t value = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    return error == std::errc{} && stop == end ? std::optional(value) : std::nullopt;
}

// Empty when it was not known.
bool isSerial(const std::string& text)
{
    constexpr size_t kMost = 14;
    return text.size() <= kMost && std::ranges::all_of(text, [](unsigned char c) { return std::isxdigit(c) != 0; });
}

// The metadata of every camera.
std::vector<mcap::Names> cameraRecords(const mcap::Reader& file, const std::filesystem::path& path)
{
    std::vector<mcap::Names> records;
    for (const mcap::MetadataPlace& place : file.metadata()) {
        if (place.name != kMetadata)
            continue;
        const mcap::Names names = file.read(place);
        const std::optional<uint64_t> format = number(member(names, kFormatKey));
        if (!format)
            refuse(path, "does not say of which format it is");
        if (*format > kRecordingFormat)
            refuse(path, "is a recording of format " + std::to_string(*format) +
                             ", and this program knows no later one than " + std::to_string(kRecordingFormat));
        if (!isSerial(member(names, kSerialKey)))
            refuse(path, "names a camera by something that is no serial number");
        records.push_back(names);
    }
    if (records.empty())
        refuse(path, "is no recording of a camera: the metadata of one is missing");
    return records;
}

// A camera may call itself anything, but a virtual one has to show it over USB.
bool isName(const std::string& text)
{
    constexpr size_t kMost = 63;
    return !text.empty() && text.size() <= kMost &&
           std::ranges::all_of(text, [](char c) { return c >= ' ' && c <= '~'; });
}

bool isUsb(const std::string& text)
{
    constexpr char kForm[] = "xxxx:xxxx";
    return std::ranges::equal(text, std::string(kForm), [](char c, char form) {
        return form == 'x' ? std::isxdigit(static_cast<unsigned char>(c)) != 0 : c == form;
    });
}

template <typename T> std::vector<T> valuesIn(const Bytes& bytes)
{
    std::vector<T> values(bytes.size() / sizeof(T));
    if (!values.empty())
        std::memcpy(values.data(), bytes.data(), values.size() * sizeof(T));
    return values;
}

} // namespace

std::vector<std::string> camerasIn(const std::filesystem::path& path)
{
    const mcap::Reader file(path);
    std::vector<std::string> serials;
    for (const mcap::Names& names : cameraRecords(file, path))
        serials.push_back(member(names, kSerialKey));
    return serials;
}

Recording::Recording(const std::filesystem::path& path, const std::string& serial)
    : m_path(path), m_file(std::make_unique<mcap::Reader>(path))
{
    const std::vector<mcap::Names> records = cameraRecords(*m_file, path);
    std::string all;
    for (const mcap::Names& names : records)
        all += (all.empty() ? "" : ", ") + member(names, kSerialKey);
    if (serial.empty() && records.size() > 1)
        refuse(path, "has several cameras: choose one with -c, of " + all);
    const auto chosen = std::ranges::find_if(
        records, [&](const mcap::Names& names) { return serial.empty() || member(names, kSerialKey) == serial; });
    if (chosen == records.end())
        throw Failure(kNoCamera, path.string() + " has no camera " + serial + ", but " + all);
    readCamera(*chosen);
}

void Recording::readCamera(const mcap::Names& names)
{
    m_camera.serial = member(names, kSerialKey);
    m_camera.product = member(names, kProductKey);
    m_camera.vendor = member(names, kVendorKey);
    m_camera.usb = member(names, kUsbKey);
    m_camera.hostCorrected = member(names, kHostCorrectedKey) == "true";
    m_session = number(member(names, kSessionKey)).value_or(0);
    m_topics = '/' + member(names, kNameKey);
    if (!isName(m_camera.product) || !isName(m_camera.vendor) || !isUsb(m_camera.usb))
        refuse(m_path, "does not say which camera it is of");
    m_camera.eeprom = attachment(kEepromFile, VQD_EEPROM_BYTES);
    m_camera.orthogonal = attachment(kOrthogonalFile, kOrthogonalBytes);
    m_camera.fppn = valuesIn<int32_t>(attachment(kFppnFile, kFppnBlocks * sizeof(int32_t)));
    m_camera.factors = valuesIn<double>(attachment(kFactorsFile, VQD_PIXELS * sizeof(double)));
}

uint64_t Recording::begins() const
{
    return m_file->chunks().empty() ? 0 : m_file->chunks().front().firstTime;
}

// Empty when there is none. It must have just so many bytes.
Bytes Recording::attachment(const char* name, size_t bytes) const
{
    const std::string whole = (m_camera.serial.empty() ? "unknown" : m_camera.serial) + '/' + name;
    const auto& all = m_file->attachments();
    const auto found = std::ranges::find(all, whole, &mcap::AttachmentPlace::name);
    if (found == all.end())
        return {};
    Bytes content = m_file->read(*found);
    if (content.size() != bytes)
        refuse(m_path, "has an attachment " + whole + " of " + std::to_string(content.size()) + " bytes instead of " +
                           std::to_string(bytes));
    return content;
}
