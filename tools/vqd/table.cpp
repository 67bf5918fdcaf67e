// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// vqd table: copies calibration tables between a camera and a file, as the bytes that travel or as values to look at.
#include <algorithm>
#include <memory>

#include <CLI/CLI.hpp>

#include "host/formatted.h"

#include "cameras.h"
#include "commands.h"
#include "eeprom_change.h"
#include "interrupt.h"
#include "messages.h"
#include "options.h"
#include "output.h"

namespace
{

struct Options {
    std::string table, file;
    bool csv = false;
};

// The values of a table. They travel as two bytes each, the more significant one first.
using Values = std::vector<double>;

Bytes bigEndian(const Values& values, double scale)
{
    Bytes bytes;
    for (const double value : values) {
        const auto number = static_cast<unsigned>(value * scale + 0.5);
        bytes.push_back(static_cast<uint8_t>(number >> 8));
        bytes.push_back(static_cast<uint8_t>(number & 0xFF));
    }
    return bytes;
}

// 5 x 5 FPPN values travel as a sign byte, 2 for negative, and a magnitude.
Bytes signBytes(const Values& values)
{
    Bytes bytes;
    for (const double value : values) {
        bytes.push_back(value < 0 ? 2 : 0);
        bytes.push_back(static_cast<uint8_t>(value < 0 ? -value : value));
    }
    return bytes;
}

bool readWiggling(int n, Values& values)
{
    std::vector<uint16_t> raw(4096);
    const bool read = vqdLoadWigglingData(n, raw.data(), 0, 8192) == 1;
    values.assign(raw.begin(), raw.end());
    return read;
}

bool readFppn4x4(int n, Values& values)
{
    std::vector<int> raw(4800);
    const bool read = vqdLoadFPPNData_4x4(n, raw.data()) == 1;
    values.assign(raw.begin(), raw.end());
    return read;
}

bool readFppn5x5(int n, Values& values)
{
    std::vector<int> raw(3072);
    const bool read = vqdLoadFPPNData_5x5(n, raw.data()) == 1;
    values.assign(raw.begin(), raw.end());
    return read;
}

bool readOrthogonal(int n, Values& values)
{
    values.assign(2048, 0);
    return vqdLoadOrthogonalData(n, values.data()) == 1;
}

struct Table {
    const char* name;
    size_t bytes;
    int columns;   // of the values in a CSV file
    double waitMs; // the least time that writing takes
    int (*write)(int n, const unsigned char* data);
    bool (*read)(int n, Values& values); // null when the camera does not give the table back
    Bytes (*encode)(const Values& values);
    bool readsWhatIsWritten; // from the same region
    bool large;              // more than libusb on Linux moves in one control transfer
};

Bytes encodeWhole(const Values& values)
{
    return bigEndian(values, 1);
}

Bytes encodeFactors(const Values& values)
{
    return bigEndian(values, 10000);
}

constexpr Table kTables[] = {
    {"wiggling", 3840, 0, 75, vqdSaveWigglingData, nullptr, nullptr, false, false},
    {"wiggling-a", 8192, 0, 320, [](int n, const unsigned char* d) { return vqdSaveWigglingData2(n, d, 0); },
     readWiggling, encodeWhole, false, true},
    {"wiggling-b", 8192, 0, 320, [](int n, const unsigned char* d) { return vqdSaveWigglingData2(n, d, 1); }, nullptr,
     nullptr, false, false},
    {"fppn", 12288, 0, 240, vqdSaveFPPNData, nullptr, nullptr, false, false},
    {"fppn-4x4", 9600, 80, 300, [](int n, const unsigned char* d) { return vqdSaveFPPNData_4x4(n, d, 0); }, readFppn4x4,
     encodeWhole, true, true},
    {"fppn-5x5", 6144, 64, 192, [](int n, const unsigned char* d) { return vqdSaveFPPNData_5x5(n, d, 0); }, readFppn5x5,
     signBytes, false, true},
    {"orthogonal", 4096, 8, 160, vqdSaveOrthogonalData, readOrthogonal, encodeFactors, true, false},
};

std::string tableNames()
{
    std::string text;
    for (const Table& table : kTables)
        text += std::string("  ") + table.name + ", " + std::to_string(table.bytes) + " bytes" +
                (table.read == nullptr ? ", cannot be read\n" : "\n");
    return text;
}

const Table& tableByName(const std::string& name)
{
    const auto row =
        std::find_if(std::begin(kTables), std::end(kTables), [&](const Table& t) { return name == t.name; });
    if (row == std::end(kTables))
        throw Failure(kUsage, "there is no table '" + name + "'; the tables are:\n" + tableNames());
    return *row;
}

// The library delivers zeros for what was not read: for the whole of a large table, or for the end of one whose answer
// was cut short. An empty table has zeros from its start.
bool isUnread(const Table& table, const Values& values)
{
    const auto isZero = [](double value) { return value == 0; };
    return table.large ? std::all_of(values.begin(), values.end(), isZero)
                       : isZero(values.back()) && !isZero(values.front());
}

const char* whyUnread(const Table& table)
{
    return table.large ? "reads as zeros: it is empty, or this libusb refuses control transfers above 4096 bytes, as "
                         "libusb does on Linux"
                       : "could not be read to its end";
}

Bytes csvFile(const Table& table, const Values& values)
{
    const int columns = std::max(table.columns, 1);
    Bytes file;
    for (size_t i = 0; i < values.size(); ++i) {
        const bool last = (i + 1) % static_cast<size_t>(columns) == 0 || i + 1 == values.size();
        const std::string text = formatted("%g%c", values[i], last ? '\n' : ',');
        file.insert(file.end(), text.begin(), text.end());
    }
    return file;
}

int backup(const Options& options)
{
    const Table& table = tableByName(options.table);
    if (table.read == nullptr)
        throw Failure(kUsage, std::string("the camera does not give '") + table.name + "' back");
    Output output;
    requireWritableFile(options.file, existing());
    const Cameras cameras;
    const ListedCamera& camera = cameras.choose();
    const int n = camera.nIndex;
    Values values;
    if (!table.read(n, values))
        failOn(camera, std::string("the camera refused to read '") + table.name + "'");
    if (isUnread(table, values))
        failOn(camera, std::string("'") + table.name + "' " + whyUnread(table) + "; no file was written");
    endIfInterrupted();
    const Bytes file = options.csv ? csvFile(table, values) : table.encode(values);
    writeFile(options.file, file, existing());
    Json json = document("table-backup");
    json["camera"] = identityJson(camera);
    json["table"] = table.name;
    json["values"] = values.size();
    json["file"] = options.file;
    output.finish(json, formatted("%s: %zu values of '%s'\n", options.file.c_str(), values.size(), table.name));
    return kDone;
}

// Says why the written table is not verified; empty when it is.
std::string unverified(const ListedCamera& camera, const Table& table, const Bytes& bytes)
{
    if (table.read == nullptr || !table.readsWhatIsWritten)
        return "the camera does not give it back";
    Values values;
    const bool read = table.read(camera.nIndex, values);
    const Bytes stored = table.encode(values);
    if (read && stored == bytes)
        return {};
    if (read && table.large && isUnread(table, values))
        return "this libusb refuses control transfers above 4096 bytes";
    if (!read || isUnread(table, values))
        failOn(camera, std::string("'") + table.name +
                           "' could not be read back, so it is not known what the camera "
                           "holds now");
    size_t different = 0;
    for (size_t i = 0; i < bytes.size(); ++i)
        different += stored[i] != bytes[i];
    throw Failure(kVerification, std::string("'") + table.name + "' reads back with " + std::to_string(different) +
                                     " different bytes");
}

void backUpTable(const ListedCamera& camera, const Table& table)
{
    Values values;
    if (table.read == nullptr || !table.readsWhatIsWritten || !table.read(camera.nIndex, values) ||
        isUnread(table, values))
        note("'%s' is not backed up: the camera or this libusb does not give it back", table.name);
    else
        backUpAndTell(camera, table.name, table.encode(values));
}

int restore(const Options& options)
{
    const Table& table = tableByName(options.table);
    const Bytes bytes = readFile(options.file, table.bytes);
    Output output;
    requireConfirmable();
    const Cameras cameras;
    const ListedCamera& camera = cameras.chooseToChange();
    const int n = camera.nIndex;
    confirm(nameOf(camera) + ", serial " + camera.szSerialNumber + ": replace its table '" + table.name + "'?");
    backUpTable(camera, table);
    endIfInterrupted();
    note("sending %zu bytes, %.0f ms at least", table.bytes, table.waitMs);
    if (table.write(n, bytes.data()) != 1)
        failOn(camera, std::string("'") + table.name + "' was not sent");
    const std::string reason = unverified(camera, table, bytes);
    Json json = document("table-restore");
    json["camera"] = identityJson(camera);
    json["table"] = table.name;
    json["file"] = options.file;
    json["verified"] = reason.empty();
    json["reason"] = reason.empty() ? Json() : Json(reason);
    output.finish(json, formatted("'%s' from %s: %s%s\n", table.name, options.file.c_str(),
                                  reason.empty() ? "verified" : "not verified: ", reason.c_str()));
    return kDone;
}

} // namespace

void addTable(CLI::App& app, Run& run)
{
    const auto options = std::make_shared<Options>();
    CLI::App* command = app.add_subcommand("table", "Copies calibration tables from the camera into a file, and back");
    command->require_subcommand(1);
    CLI::App* reader = command->add_subcommand("backup", "Copies a table into a file");
    CLI::App* writer = command->add_subcommand("restore", "Writes a file into the camera");
    for (CLI::App* way : {reader, writer}) {
        way->add_option("table", options->table, "Name of the table")->type_name("TABLE")->required();
        way->add_option("file", options->file, "File with the bytes as they travel")->type_name("FILE")->required();
    }
    addCommon(*reader, kCamera | kJson | kForce);
    addCommon(*writer, kCamera | kJson | kYes);
    reader->footer("Example: vqd table backup orthogonal factors.bin");
    writer->footer("Example: vqd table restore orthogonal factors.bin");
    reader->add_flag("--csv", options->csv, "Write comma-separated values to look at");
    command->footer("Tables:\n" + tableNames() + "Example: vqd table backup orthogonal factors.bin");
    reader->callback([&run, options] { run = [options] { return backup(*options); }; });
    writer->callback([&run, options] { run = [options] { return restore(*options); }; });
}
