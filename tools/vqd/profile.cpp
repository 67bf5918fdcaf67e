// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// vqd profile: what this machine keeps of a camera beside its EEPROM.
#include <algorithm>
#include <memory>

#include <CLI/CLI.hpp>

#include "host/calibration_tables.h"
#include "host/direct_read.h"
#include "host/documents.h"
#include "host/formatted.h"
#include "host/profile.h"

#include "cameras.h"
#include "commands.h"
#include "eeprom_change.h"
#include "messages.h"
#include "options.h"
#include "output.h"

namespace
{

struct Options {
    std::string file, lens, fppn, orthogonal, pose;
    bool system = false, plain = false;
};

std::filesystem::path targetOf(const Options& options, const ListedCamera& camera)
{
    std::filesystem::path path =
        options.system ? systemProfilePath(camera.szSerialNumber) : userProfilePath(camera.szSerialNumber);
    if (path.empty())
        throw Failure(kFailed, "there is no home folder for a profile; XDG_DATA_HOME names another place");
    return path;
}

const ListedCamera& chooseKnown(const Cameras& cameras)
{
    const ListedCamera& camera = cameras.choose();
    requireEeprom(camera); // it holds the serial number, which the profile goes by
    return camera;
}

// The profile of the camera that is in force, which must be there.
FoundProfile requireProfile(const Cameras& cameras, const ListedCamera& camera)
{
    FoundProfile found = findProfile(cameras.all(), camera);
    if (found.path.empty())
        throw Failure(kFailed, "there is no profile of camera " + std::string(camera.szSerialNumber));
    return found;
}

std::string partsText(const Profile& profile)
{
    std::string text;
    const auto add = [&](bool has, const std::string& part) {
        if (has)
            text += (text.empty() ? "" : ", ") + part;
    };
    add(profile.depth.has_value(), "depth lens");
    add(profile.colour.has_value(), "colour lens");
    add(!profile.fppn.empty(), "FPPN");
    add(profile.orthogonalOfLens || !profile.orthogonal.empty(), "orthogonal factors");
    add(!profile.poses.empty(),
        std::to_string(profile.poses.size()) + (profile.poses.size() == 1 ? " pose" : " poses"));
    return text.empty() ? "empty" : text;
}

void finish(Output& output, const char* command, const ListedCamera& camera, const std::filesystem::path& path,
            const std::optional<Profile>& profile, const std::string& text)
{
    Json json = document(command);
    json["camera"] = identityJson(camera);
    json["file"] = path.string();
    json["profile"] = profile ? profileJson(*profile) : Json();
    output.finish(json, text);
}

int show(const Options&)
{
    Output output;
    const Cameras cameras;
    const ListedCamera& camera = chooseKnown(cameras);
    const FoundProfile found = requireProfile(cameras, camera);
    if (!found.values)
        warn("%s", found.warning.c_str());
    finish(output, "profile-show", camera, found.path, found.values,
           found.path.string() + (found.values ? ": " + partsText(*found.values) : ": not applied") + '\n');
    return kDone;
}

std::vector<int> fppnFrom(const Options& options, const ListedCamera& camera)
{
    const Table& table = tableNamed("fppn-4x4");
    const Bytes bytes = options.fppn == "camera" ? readDirectly(camera, table.region, table.bytes)
                                                 : readFile(options.fppn, table.bytes);
    const TableValues values = table.code->decode(bytes);
    return {values.begin(), values.end()};
}

void takeLenses(Profile& profile, const std::string& file)
{
    const Json json = readDocument(file, "lens");
    for (const auto& [key, unused] : json.items())
        if (key != "schema" && key != "depth" && key != "colour" && key != "extrinsic")
            throw Failure(kUsage, file + ": there is no set '" + key + "'");
    if (!json.contains("depth") && !json.contains("colour"))
        throw Failure(kUsage, file + ": it holds no lens");
    if (json.contains("depth"))
        profile.depth = exactLensFrom(json["depth"], file + ": depth");
    if (json.contains("colour"))
        profile.colour = exactLensFrom(json["colour"], file + ": colour");
}

void takePose(Profile& profile, const std::string& file)
{
    Json json = readDocument(file, "pose");
    json.erase("schema");
    setPose(profile, poseFrom(json, file + ": the pose"));
}

void takeOrthogonal(Profile& profile, const std::string& from)
{
    profile.orthogonalOfLens = from == "lens";
    profile.orthogonal.clear();
    if (profile.orthogonalOfLens)
        return;
    const Table& table = tableNamed("orthogonal");
    profile.orthogonal = table.code->decode(readFile(from, table.bytes));
}

// What an import begins with: a whole profile from a file, or the present one. Without one of its own, a user's profile
// begins with that of all users, which it will hide.
Profile base(const Options& options, const ListedCamera& camera, const std::filesystem::path& target)
{
    const std::filesystem::path all = systemProfilePath(camera.szSerialNumber);
    std::error_code unknown;
    std::string file = options.file;
    if (file.empty() && std::filesystem::exists(target, unknown))
        file = target;
    else if (file.empty() && std::filesystem::exists(all, unknown))
        file = all;
    Profile profile;
    if (!file.empty())
        profile = readProfile(file, camera.szSerialNumber);
    if (!file.empty() && profile.eeprom != fingerprint(camera.eeprom) && !common.force)
        throw Failure(kUsage, file + " was made for another lens in this camera's EEPROM; --force takes it for the "
                                     "present one");
    return profile;
}

// A file replaces the whole profile; the other options replace a part of the one that is there.
Profile imported(const Options& options, const ListedCamera& camera, const std::filesystem::path& target)
{
    Profile profile = base(options, camera, target);
    profile.serial = camera.szSerialNumber;
    profile.product = camera.szDeviceName;
    profile.eeprom = fingerprint(camera.eeprom);
    if (!options.lens.empty())
        takeLenses(profile, options.lens);
    if (!options.fppn.empty())
        profile.fppn = fppnFrom(options, camera);
    if (!options.orthogonal.empty())
        takeOrthogonal(profile, options.orthogonal);
    if (!options.pose.empty())
        takePose(profile, options.pose);
    return profile;
}

int import(const Options& options)
{
    if ((options.file + options.lens + options.fppn + options.orthogonal + options.pose).empty())
        throw Failure(kUsage, "nothing to import: give a profile, --lens, --fppn, --orthogonal or --pose");
    Output output;
    const Cameras cameras;
    const ListedCamera& camera = chooseKnown(cameras);
    const std::filesystem::path target = targetOf(options, camera);
    const Profile profile = imported(options, camera, target);
    writeProfile(target, profile);
    finish(output, "profile-import", camera, target, profile, target.string() + ": " + partsText(profile) + '\n');
    return kDone;
}

// What a program without JSON reads: words, each followed by its values, one a line. "serial" comes first; then "lens"
// with ten numbers, "fppn" with 4800 and "orthogonal" with 76800, as far as the profile has them.
std::string plainText(const Profile& profile)
{
    std::string text = "serial\n" + profile.serial + '\n';
    LensIntrinsic k{};
    if (profile.depth) {
        k = profile.depth->k;
        const LensDistortion& d = profile.depth->d;
        text += "lens\n";
        for (const float value : {k.fx, k.fy, k.cx, k.cy, d.k1, d.k2, d.k3, d.p1, d.p2, d.skew})
            text += formatted("%.9g\n", static_cast<double>(value));
    }
    if (!profile.fppn.empty())
        text += "fppn\n";
    for (const int value : profile.fppn)
        text += formatted("%d\n", value);
    const std::vector<double> factors = orthogonalFactors(profile, k);
    if (!factors.empty())
        text += "orthogonal\n";
    for (const double value : factors)
        text += formatted("%.17g\n", value);
    return text;
}

int exportFile(const Options& options)
{
    Output output;
    requireWritableFile(options.file, existing());
    const Cameras cameras;
    const ListedCamera& camera = chooseKnown(cameras);
    const FoundProfile found = requireProfile(cameras, camera);
    if (!found.values)
        throw Failure(kUsage, found.warning);
    Profile profile = *found.values;
    if (options.plain && !profile.depth) { // the factors need a lens
        float k[4], d[6];
        if (vqdGetLensParameter(camera.nIndex, k, d) != 1)
            failOn(camera, "the lens cannot be read");
        profile.depth = LensSet{{k[0], k[1], k[2], k[3]}, {d[0], d[1], d[2], d[3], d[4], d[5]}};
    }
    const std::string text = options.plain ? plainText(profile) : documentText(profileJson(profile));
    writeFile(options.file, std::span(reinterpret_cast<const uint8_t*>(text.data()), text.size()), existing());
    finish(output, "profile-export", camera, options.file, profile, options.file + ": " + partsText(profile) + '\n');
    return kDone;
}

int removeFile(const Options& options)
{
    Output output;
    const Cameras cameras;
    const ListedCamera& camera = chooseKnown(cameras);
    const std::filesystem::path target = targetOf(options, camera);
    std::error_code error;
    if (!std::filesystem::remove(target, error))
        throw Failure(kFailed, target.string() + ": " + (error ? error.message() : "there is no such profile"));
    finish(output, "profile-remove", camera, target, {}, target.string() + ": removed\n");
    return kDone;
}

} // namespace

void addProfile(CLI::App& app, Run& run)
{
    const auto options = std::make_shared<Options>();
    CLI::App* command = app.add_subcommand("profile", "What this machine keeps of a camera beside the camera's EEPROM");
    command->require_subcommand(1);
    const struct {
        const char *name, *description;
        int common;
        int (*work)(const Options&);
    } kWays[] = {
        {"show", "Shows the profile that is used for a camera", kCamera | kJson, show},
        {"import", "Takes a whole profile from a file, or parts from other files", kCamera | kJson, import},
        {"export", "Writes the profile to a file", kCamera | kJson | kForce, exportFile},
        {"remove", "Removes the profile", kCamera | kJson, removeFile},
    };
    for (const auto& way : kWays) {
        CLI::App* sub = command->add_subcommand(way.name, way.description);
        addCommon(*sub, way.common);
        sub->callback([&run, options, work = way.work] { run = [options, work] { return work(*options); }; });
    }
    for (const char* name : {"import", "remove"})
        command->get_subcommand(name)->add_flag("--system", options->system,
                                                "The profile for all users, in /etc/vqd/profiles");
    CLI::App* importing = command->get_subcommand("import");
    importing->add_option("file", options->file, "A profile, as vqd profile export writes it; - for standard input")
        ->type_name("FILE");
    importing->add_option("--lens", options->lens, "Lenses in full precision, in the form of vqd lens")
        ->type_name("FILE");
    importing->add_option("--fppn", options->fppn, "Table fppn-4x4; the word camera reads the camera's own")
        ->type_name("FILE");
    importing
        ->add_option("--orthogonal", options->orthogonal,
                     "Table orthogonal; the word lens computes each pixel's factor from the depth lens")
        ->type_name("FILE");
    importing
        ->add_option("--pose", options->pose, "Where the camera stands, one pose; it replaces one with the same \"to\"")
        ->type_name("FILE");
    importing->add_flag("--force", common.force, "Take a profile that was made for another lens in the EEPROM");
    importing->footer("Example: vqd profile import --fppn camera\n"
                      "Example: vqd profile import --lens exact.json --orthogonal lens");
    CLI::App* exporting = command->get_subcommand("export");
    exporting->add_option("file", options->file, "File to write")->type_name("FILE")->required();
    exporting->add_flag("--plain", options->plain, "As words and numbers, for programs that do not read JSON");
    exporting->footer("Example: vqd profile export camera.json");
    command->footer("The profile in ~/.local/share/vqd/profiles goes before the one in /etc/vqd/profiles.\n"
                    "Example: vqd profile import --fppn camera; vqd profile show");
}
