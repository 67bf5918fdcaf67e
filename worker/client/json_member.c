// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A scan that skips values without looking into them. Any text may come, so it never reads beyond the final zero.
#include "worker/client/json_member.h"

#include <limits.h>
#include <stdlib.h>
#include <string.h>

static const char* skip_blanks(const char* at)
{
    return at + strspn(at, " \t\r\n");
}

// `at` is the first quotation mark; the result is behind the last one, or null.
static const char* skip_string(const char* at)
{
    for (++at; *at != '\0'; ++at) {
        if (*at == '"')
            return at + 1;
        if (*at == '\\' && *++at == '\0')
            return NULL;
    }
    return NULL;
}

// Behind the value. Brackets are counted, not matched: whoever wrote the text is only misunderstood if it is no JSON.
static const char* skip_value(const char* at)
{
    size_t depth = 0;
    const char* const start = at;
    for (;;) {
        if (*at == '"') {
            at = skip_string(at);
            if (at == NULL)
                return NULL;
        } else if (*at == '{' || *at == '[') {
            ++depth;
            ++at;
        } else if (depth > 0 && (*at == '}' || *at == ']')) {
            --depth;
            ++at;
        } else if (*at == '\0' || (depth == 0 && strchr(",}] \t\r\n", *at) != NULL)) {
            return depth == 0 && at > start ? at : NULL;
        } else {
            ++at;
            continue;
        }
        if (depth == 0)
            return at;
    }
}

vqdc_json_value vqdc_json_member(const char* object, const char* name)
{
    const vqdc_json_value none = {NULL, 0};
    const size_t length = strlen(name);
    const char* at = skip_blanks(object);
    if (*at != '{')
        return none;
    do {
        const char* const key = skip_blanks(at + 1);
        const char* const end = *key == '"' ? skip_string(key) : NULL;
        const char* const colon = end != NULL ? skip_blanks(end) : "";
        if (*colon != ':')
            return none;
        const vqdc_json_value value = {skip_blanks(colon + 1), 0};
        at = skip_value(value.text);
        if (at == NULL)
            return none;
        if ((size_t)(end - key) == length + 2 && memcmp(key + 1, name, length) == 0)
            return (vqdc_json_value){value.text, (size_t)(at - value.text)};
        at = skip_blanks(at);
    } while (*at == ',');
    return none;
}

int vqdc_json_is(vqdc_json_value value, const char* word)
{
    return value.text != NULL && value.length == strlen(word) && memcmp(value.text, word, value.length) == 0;
}

int vqdc_json_int(vqdc_json_value value, int otherwise)
{
    if (value.text == NULL || (*value.text != '-' && (*value.text < '0' || *value.text > '9')))
        return otherwise;
    char* end;
    const long number = strtol(value.text, &end, 10); // saturates
    return end == value.text + value.length && number >= INT_MIN && number <= INT_MAX ? (int)number : otherwise;
}

// Four hexadecimal digits, or -1.
static long hex4(const char* at)
{
    char digits[5] = {0};
    for (int i = 0; i < 4; ++i) {
        if (at[i] == '\0' || strchr("0123456789abcdefABCDEF", at[i]) == NULL)
            return -1;
        digits[i] = at[i];
    }
    return strtol(digits, NULL, 16);
}

// The character of an escape, behind its backslash. Moves `at` to the last byte of the escape.
static unsigned long escaped(const char** at)
{
    static const char kLetters[] = "bfnrt", kMeanings[] = "\b\f\n\r\t";
    const char* const letter = strchr(kLetters, **at);
    if (letter != NULL)
        return (unsigned char)kMeanings[letter - kLetters];
    const long first = **at == 'u' ? hex4(*at + 1) : -1;
    if (first < 0)
        return (unsigned char)**at;
    *at += 4;
    if (first < 0xD800 || first > 0xDFFF)
        return (unsigned long)first;
    const long second = first < 0xDC00 && (*at)[1] == '\\' && (*at)[2] == 'u' ? hex4(*at + 3) : -1;
    if (second < 0xDC00 || second > 0xDFFF)
        return 0xFFFD; // half a pair is no character
    *at += 6;
    return 0x10000ul + ((unsigned long)(first - 0xD800) << 10) + (unsigned long)(second - 0xDC00);
}

static size_t utf8(unsigned long character, char bytes[4])
{
    if (character < 0x80) {
        bytes[0] = (char)character;
        return 1;
    }
    const size_t count = character < 0x800 ? 2 : character < 0x10000 ? 3 : 4;
    static const unsigned char kMarks[] = {0, 0, 0xC0, 0xE0, 0xF0};
    for (size_t i = count - 1; i > 0; --i, character >>= 6)
        bytes[i] = (char)(0x80 | (character & 0x3F));
    bytes[0] = (char)(kMarks[count] | character);
    return count;
}

size_t vqdc_whole_characters(const char* text, size_t length)
{
    size_t start = length; // of the last character
    while (start > 0 && ((unsigned char)text[start - 1] & 0xC0) == 0x80)
        --start;
    if (start == 0)
        return 0;
    const unsigned char lead = (unsigned char)text[--start];
    const size_t bytes = lead < 0xC0 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    return start + bytes <= length ? length : start;
}

const char* vqdc_json_string(vqdc_json_value value, char* into, size_t size)
{
    into[0] = '\0';
    if (value.text == NULL || value.length < 2 || value.text[0] != '"')
        return into;
    size_t used = 0;
    const char* const end = value.text + value.length - 1;
    for (const char* at = value.text + 1; at < end; ++at) {
        char bytes[4] = {*at};
        size_t count = 1;
        if (*at == '\\') {
            ++at;
            count = utf8(escaped(&at), bytes);
        }
        if (count == 1 && ((unsigned char)bytes[0] < ' ' || bytes[0] == 0x7F))
            bytes[0] = ' ';
        if (used + count >= size)
            break;
        memcpy(into + used, bytes, count);
        used += count;
    }
    into[vqdc_whole_characters(into, used)] = '\0';
    return into;
}
