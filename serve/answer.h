// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What a request gets.
#pragma once

#include <string>

#include "host/failure.h"
#include "host/json.h"
#include "worker/messages.h"

struct Answer {
    unsigned status = 200;
    const char* type = "application/json";
    std::string text{};             // the content, or its start
    Body body{};                    // the rest of the content, which others may have, too; may be null
    const char* encoding = nullptr; // of the content
    const char* location = nullptr;
    std::string cookie{};

    bool hasFrame() const { return body != nullptr; }
};

inline Answer jsonAnswer(const Json& json, unsigned status = 200)
{
    return {.status = status, .text = json.dump(-1, ' ', false, Json::error_handler_t::replace) + '\n'};
}

inline Answer refusedAnswer(unsigned status, const std::string& sentence, int code = kUsage)
{
    return jsonAnswer({{"ok", false}, {"error", sentence}, {"code", code}}, status);
}

// Of a reply of a worker, whatever its members are.
inline Answer replyAnswer(const Json& reply)
{
    if (reply.value("ok", Json()) == true)
        return jsonAnswer(reply);
    const Json code = reply.value("code", Json());
    switch (code.is_number_integer() ? code.get<int>() : 0) {
    case kUsage:
        return jsonAnswer(reply, 400);
    case kFailed:
        return jsonAnswer(reply, 409);
    case kNoCamera:
    case kNoAccess:
    case kCameraLost:
        return jsonAnswer(reply, 503);
    default:
        return jsonAnswer(reply, 500);
    }
}
