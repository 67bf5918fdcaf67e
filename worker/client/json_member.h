// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// As much of JSON as the client reads of it: members of the outermost object.
#pragma once

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

// A value as it is written in the text, quotation marks included.
typedef struct vqdc_json_value {
    const char* text; // null when there is no such member, or the text before it is no JSON
    size_t length;
} vqdc_json_value;

vqdc_json_value vqdc_json_member(const char* object, const char* name);

// Whether the value is this word, such as true.
int vqdc_json_is(vqdc_json_value value, const char* word);

// The value as an int; `otherwise` when it is no whole number that an int holds.
int vqdc_json_int(vqdc_json_value value, int otherwise);

// A string's content in UTF-8, cut to what fits into `size` bytes with the final zero. Characters that a terminal would
// act on become spaces. Empty when the value is no string. Returns `into`.
const char* vqdc_json_string(vqdc_json_value value, char* into, size_t size);

// The length of a UTF-8 text that was cut at `length`, without a last character of which bytes are missing.
size_t vqdc_whole_characters(const char* text, size_t length);

#ifdef __cplusplus
}
#endif
