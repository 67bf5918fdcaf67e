// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A row for each request.
#include "worker/requests.h"

#include "host/backups.h"
#include "host/eeprom_store.h"

#include "worker/answers.h"

namespace
{

Json done()
{
    return {{"ok", true}};
}

RequestEffect get(const Json& request, const RequestTarget& target)
{
    const int n = target.camera.nIndex;
    Json reply = done();
    if (!request.contains("names")) {
        reply["settings"] = settingsJson(n, true);
        return {reply};
    }
    if (!request["names"].is_array())
        throw Failure(kUsage, "\"names\" is not an array");
    reply["settings"] = Json::object();
    for (const Json& name : request["names"]) {
        if (!name.is_string())
            throw Failure(kUsage, "\"names\" holds something else than texts");
        const Setting& setting = settingByName(name.get<std::string>());
        reply["settings"][setting.name] = setting.get(n);
    }
    return {reply};
}

// What the camera took before a failure stays, and readers learn of it.
RequestEffect set(const Json& request, const RequestTarget& target)
{
    const std::vector<Assignment> assignments = assignmentsFrom(request, "the request");
    requireFrames(assignments);
    RequestEffect effect{done(), eventOf("set"), true};
    try {
        for (const Assignment& assignment : assignments)
            sendAssignment(target.camera, assignment);
        requireTaken(target.camera, assignments);
    } catch (const std::exception& why) {
        effect.reply = refusal(why);
    }
    for (const Assignment& assignment : assignments)
        effect.event["settings"][assignment.setting->name] = assignment.setting->get(target.camera.nIndex);
    effect.reply["settings"] = effect.event["settings"];
    return effect;
}

RequestEffect save(const Json&, const RequestTarget& target)
{
    const ListedCamera& camera = target.camera;
    requireEeprom(camera);
    const EepromRead before = readEeprom(camera.place);
    if (!before.whole())
        failOn(camera, "the EEPROM could not be read for a backup, so nothing is written");
    Json reply = done();
    reply["written"] = before.bytes != eepromOfImage(camera);
    if (!reply["written"])
        return {reply};
    {
        const SaveTurn possible(camera.szSerialNumber, TooSoon::refuse); // or frames would pause for nothing
    }
    target.whileStopped([&] {
        backUp("eeprom", camera.szSerialNumber, before.bytes);
        saveImage(camera, before);
        requireStored(camera);
    });
    return {reply, eventOf("saved")};
}

RequestEffect record(const Json& request, const RequestTarget& target)
{
    Json reply = done();
    reply["recording"] = requireRecorder(target.recorder).start(request, target.camera);
    return {reply};
}

RequestEffect stop(const Json&, const RequestTarget&)
{
    return {done(), eventOf("stopping"), false, true};
}

constexpr struct {
    const char* name;
    RequestEffect (*answer)(const Json& request, const RequestTarget& target);
} kRequests[] = {{"get", get}, {"set", set}, {"save", save}, {"record", record}, {"stop", stop}};

} // namespace

RequestEffect answer(const Json& request, const RequestTarget& target)
{
    if (!request.contains("do") || !request["do"].is_string())
        throw Failure(kUsage, "a request says what to do: \"do\" is missing or is no text");
    const auto name = request["do"].get<std::string>();
    for (const auto& known : kRequests)
        if (name == known.name)
            return known.answer(request, target);
    throw Failure(kUsage, "a worker knows no request '" + name + "'");
}
