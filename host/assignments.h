// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Settings with values: from texts, to a claimed camera, and compared with what the camera then has.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "host/listed_camera.h"
#include "host/settings.h"

// A setting, and the values that it is to get.
struct Assignment {
    const Setting* setting;
    std::vector<int> values;

    Json json() const; // as the setting's get() gives them
    std::string text() const;
};

// Both fail with a usage error for values that the setting does not take. The second takes "name=value,value" and puts
// the assignments into the order of the table.
Assignment assignmentOf(const Setting& setting, std::vector<int> values);
std::vector<Assignment> parseAssignments(const std::vector<std::string>& texts);

// For frames that are being read or about to be: refuses the setting with which no frame would come.
void requireFrames(std::span<const Assignment> assignments);
std::vector<Assignment> parseForFrames(const std::vector<std::string>& texts);

// The "settings" of a dump as assignments, in the order of the table and without those that can only be read. Fails
// with a usage error for anything that is no setting, or that a setting does not take; `file` is for that message.
std::vector<Assignment> assignmentsFrom(const Json& json, const std::string& file);

// Sends one to a claimed camera. Fails when the camera or the library refuses it. The library's lines are needed to
// tell a refusal from a failed transfer.
void sendAssignment(const ListedCamera& camera, const Assignment& assignment);

// Those that are not what the camera's image holds.
std::vector<Assignment> differing(const ListedCamera& camera, std::span<const Assignment> assignments);

// Fails when the camera's image holds another value: some models take every value and keep what they have.
void requireTaken(const ListedCamera& camera, std::span<const Assignment> assignments);

// Whether the FPPN correction is switched on by these but has no effect, because the camera's table reads as zeros.
bool fppnAddsNothing(const ListedCamera& camera, std::span<const Assignment> assignments);

// All settings of a camera; those that need a frame only after one has been read.
Json settingsJson(int n, bool frameRead);

// "300,4000"
std::string settingText(const Json& value);
