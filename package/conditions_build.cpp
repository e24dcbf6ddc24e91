// SPDX-License-Identifier: GPL-2.0-or-later
//
// From condition text to condition code.
#include "package/conditions.h"

#include <cctype>
#include <cstring>

namespace {

// Plain char is signed on some machines; the character classes want 0 to 255.
bool is_space(char c)
{
    return isspace(static_cast<unsigned char>(c)) != 0;
}

bool is_name_start(char c)
{
    return isalpha(static_cast<unsigned char>(c)) != 0 || c == '_';
}

bool is_name_part(char c)
{
    return isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' || c == '-';
}

char *skip_space(char *text)
{
    while (is_space(*text))
        text++;
    return text;
}

// Where compiled bytes go. A byte that does not fit marks the output as full.
struct code_output {
    uint8_t *bytes;
    int capacity;
    int length;
    bool full;
};

void emit(code_output *output, uint8_t byte)
{
    if (output->length >= output->capacity) {
        output->full = true;
        return;
    }
    output->bytes[output->length++] = byte;
}

void emit_text(code_output *output, const char *text)
{
    do {
        emit(output, static_cast<uint8_t>(*text));
    } while (*text++ != '\0');
}

// The code of the one-character token `c`, or -1 when it begins something else.
int token_code(char c)
{
    switch (c) {
    case '!':
        return condition_and_not;
    case '|':
        return condition_or;
    case '&':
        return condition_and;
    case '(':
        return condition_open;
    case ')':
        return condition_close;
    default:
        return -1;
    }
}

// Reads the comparison operator at `*text`, overwrites its first character with NUL, which ends the
// name before it, and steps behind it. Its code, or -1. There is no "==": the value begins with the
// second "=".
int take_operator(char **text)
{
    char *at = *text;
    const bool with_equal = at[0] != '\0' && at[1] == '=';
    int code = -1;
    int size = 1;
    if (at[0] == '=') {
        code = condition_equal;
    } else if (at[0] == '>') {
        code = with_equal ? condition_greater_equal : condition_greater;
        size += with_equal ? 1 : 0;
    } else if (at[0] == '<') {
        code = with_equal ? condition_less_equal : condition_less;
        size += with_equal ? 1 : 0;
    } else if (at[0] == '!' && with_equal) {
        code = condition_not_equal;
        size = 2;
    }
    if (code < 0)
        return -1;
    at[0] = '\0';
    *text = at + size;
    return code;
}

// Ends the value at `*text` with NUL and steps behind it. Returns its start, or null without the
// closing quote. Kept: the opening quote stays in the value. Without it the compiled code of
// existing packages and a new text for the same value would differ.
char *take_value(char **text)
{
    char *value = *text;
    char *end = value;
    if (*value == '"' || *value == '\'') {
        end = strchr(value + 1, *value);
        if (end == nullptr)
            return nullptr;
    } else {
        while (*end != '\0' && !is_space(*end))
            end++;
    }
    *text = *end == '\0' ? end : end + 1;
    *end = '\0';
    return value;
}

// Compiles the comparison at `*text` and steps behind it. False when it is malformed.
bool build_comparison(char **text, code_output *output)
{
    char *at = *text;
    const char *name = at;
    if (!is_name_start(*at))
        return false;
    while (is_name_part(*at))
        at++;
    if (is_space(*at)) {
        *at = '\0';
        at = skip_space(at + 1);
    }
    int numeric = 0;
    if (*at == ':') {
        *at++ = '\0';
        numeric = condition_numeric;
    }
    const int code = take_operator(&at);
    if (code < 0)
        return false;
    at = skip_space(at);
    const char *value = take_value(&at);
    if (value == nullptr)
        return false;
    emit(output, static_cast<uint8_t>(code + numeric));
    emit_text(output, name);
    emit_text(output, value);
    *text = at;
    return true;
}

} // namespace

int build_conditions(char *text, uint8_t *code, int capacity)
{
    code_output output = {.bytes = code, .capacity = capacity, .length = 0, .full = false};
    for (char *at = skip_space(text); *at != '\0'; at = skip_space(at)) {
        const int token = token_code(*at);
        if (token >= 0) {
            emit(&output, static_cast<uint8_t>(token));
            at++;
        } else if (!build_comparison(&at, &output)) {
            return -1;
        }
    }
    emit(&output, condition_close);
    return output.full ? -1 : output.length;
}
