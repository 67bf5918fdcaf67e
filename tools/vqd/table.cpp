// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// vqd table: copies calibration tables between a camera and a file, as the bytes that travel or as values to look at.
#include <algorithm>
#include <memory>

#include <CLI/CLI.hpp>

#include "host/calibration_tables.h"
#include "host/direct_read.h"
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
    bool csv = false, direct = false;
};

// The library delivers zeros for what was not read: for the whole of a large table, or for the end of one whose answer
// was cut short. An empty table has zeros from its start.
bool isUnread(const Table& table, const TableValues& values)
{
    const auto isZero = [](double value) { return value == 0; };
    return table.isLarge() ? std::all_of(values.begin(), values.end(), isZero)
                           : isZero(values.back()) && !isZero(values.front());
}

const char* whyUnread(const Table& table)
{
    return table.isLarge() ? "reads as zeros: it is empty, or this libusb refuses control transfers above 4096 bytes, "
                             "as libusb does on Linux; --direct reads it past libusb"
                           : "could not be read to its end";
}

Bytes readByLibrary(const ListedCamera& camera, const Table& table)
{
    TableValues values;
    if (!table.read(camera.nIndex, values))
        failOn(camera, std::string("the camera refused to read '") + table.name + "'");
    if (isUnread(table, values))
        failOn(camera, std::string("'") + table.name + "' " + whyUnread(table) + "; no file was written");
    return table.code->encode(values);
}

Bytes csvFile(const Table& table, const TableValues& values)
{
    Bytes file;
    for (size_t i = 0; i < values.size(); ++i) {
        const bool last = (i + 1) % static_cast<size_t>(table.columns) == 0 || i + 1 == values.size();
        const std::string text = formatted("%g%c", values[i], last ? '\n' : ',');
        file.insert(file.end(), text.begin(), text.end());
    }
    return file;
}

int backup(const Options& options)
{
    const Table& table = tableNamed(options.table);
    if (table.read == nullptr && !options.direct)
        throw Failure(kUsage, std::string("the library cannot read '") + table.name + "' back; --direct can");
    if (options.csv && table.code == nullptr)
        throw Failure(kUsage, std::string("'") + table.name + "' has no values to show, only bytes");
    Output output;
    requireWritableFile(options.file, existing());
    const Cameras cameras;
    const ListedCamera& camera = cameras.choose();
    const Bytes bytes = options.direct ? readDirectly(camera, table.region, table.bytes) : readByLibrary(camera, table);
    endIfInterrupted();
    writeFile(options.file, options.csv ? csvFile(table, table.code->decode(bytes)) : bytes, existing());
    Json json = document("table-backup");
    json["camera"] = identityJson(camera);
    json["table"] = table.name;
    json["values"] = bytes.size() / 2;
    json["file"] = options.file;
    output.finish(json, formatted("%s: %zu values of '%s'\n", options.file.c_str(), bytes.size() / 2, table.name));
    return kDone;
}

[[noreturn]] void failAsUnknown(const ListedCamera& camera, const Table& table)
{
    failOn(camera,
           std::string("'") + table.name + "' could not be read back, so it is not known what the camera holds now");
}

void requireSame(const Table& table, const Bytes& stored, const Bytes& sent)
{
    size_t different = 0;
    for (size_t i = 0; i < sent.size(); ++i)
        different += stored[i] != sent[i];
    if (different != 0)
        throw Failure(kVerification, std::string("'") + table.name + "' reads back with " + std::to_string(different) +
                                         " different bytes");
}

// Compares what the camera holds with what was sent. Says why that was not possible; empty when it was.
std::string verify(const ListedCamera& camera, const Table& table, const Bytes& sent, bool direct)
{
    if (direct) {
        requireSame(table, readDirectly(camera, table.region, table.bytes), sent);
        return {};
    }
    if (table.read == nullptr || !table.readsWhatIsWritten)
        return "the library cannot read it back; --direct can";
    TableValues values;
    if (!table.read(camera.nIndex, values))
        failAsUnknown(camera, table);
    const Bytes stored = table.code->encode(values);
    if (stored != sent && isUnread(table, values)) {
        if (table.isLarge())
            return "this libusb refuses control transfers above 4096 bytes; --direct reads past it";
        failAsUnknown(camera, table);
    }
    requireSame(table, stored, sent);
    return {};
}

void backUpTable(const ListedCamera& camera, const Table& table, bool direct)
{
    TableValues values;
    if (direct)
        backUpAndTell(camera, table.name, readDirectly(camera, table.region, table.bytes));
    else if (table.read == nullptr || !table.readsWhatIsWritten || !table.read(camera.nIndex, values) ||
             isUnread(table, values))
        note("'%s' is not backed up, because the library or this libusb cannot read it; --direct can", table.name);
    else
        backUpAndTell(camera, table.name, table.code->encode(values));
}

int restore(const Options& options)
{
    const Table& table = tableNamed(options.table);
    const Bytes bytes = readFile(options.file, table.bytes);
    Output output;
    requireConfirmable();
    const Cameras cameras;
    const ListedCamera& camera = cameras.chooseToChange();
    const int n = camera.nIndex;
    confirm(nameOf(camera) + ", serial " + camera.szSerialNumber + ": replace its table '" + table.name + "'?");
    backUpTable(camera, table, options.direct);
    endIfInterrupted();
    note("sending %u bytes, %.0f ms at least", unsigned{table.bytes}, table.waitMs);
    if (table.write(n, bytes.data()) != 1)
        failOn(camera, std::string("'") + table.name + "' was not sent");
    const std::string reason = verify(camera, table, bytes, options.direct);
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
        way->add_flag("--direct", options->direct,
                      "Read past libusb, which on Linux refuses the large tables, from where the table is written");
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
