// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What there is to know of a type of messages besides its fields.
#pragma once

namespace msg
{

struct MessageType {
    const char* name;   // as in sensor_msgs/msg/Image
    const char* schema; // its definition and those of the types in it, in the form that MCAP calls ros2msg
    const char* hash;   // RIHS01_ and 64 hexadecimal digits
};

} // namespace msg
