// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The text of the property "settings", as the object that a worker is sent.
#pragma once

#include <string>

// "offset=5,depth-range=300,4000" into {"offset":5,"depth-range":[300,4000]}. Which settings there are and what they
// take is the worker's to judge. False with a sentence for a text of another form.
bool settingsJson(const std::string& text, std::string& json, std::string& why);
