// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/simdev/core/faults.h"

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

namespace {

enum fault_part : unsigned {
    part_at = 1,        // "@N" may stand
    part_at_needed = 2, // and must
    part_times = 4,
};

// What a kind takes beside its name. Keys are separated by blanks.
struct fault_grammar {
    unsigned parts;
    const char *keys;
    const char *needed_key; // null: none
    int64_t times;          // when "xM" does not stand
};

constexpr int64_t for_ever = INT64_MAX;

const fault_grammar grammars[fault_kind_count] = {
    {part_at | part_at_needed, "torn", nullptr, 1},
    {part_at | part_at_needed | part_times, "", nullptr, 1},
    {part_at | part_at_needed | part_times, "bytes", nullptr, 1},
    {part_at | part_at_needed | part_times, "bit", nullptr, 1},
    {part_at | part_at_needed | part_times, "", nullptr, 1},
    {part_at | part_times, "partition", nullptr, 1},
    {part_at | part_times, "", nullptr, for_ever},
    {0, "receiver", nullptr, for_ever},
    {0, "receiver", nullptr, for_ever},
    {0, "", nullptr, 1},
    {0, "fd", "fd", 1},
    {0, "seconds", "seconds", 1},
    {part_at | part_at_needed, "", nullptr, for_ever},
    {0, "bytes seconds", nullptr, for_ever},
    {part_at | part_at_needed, "", nullptr, for_ever},
};

struct key_row {
    const char *name;
    int64_t sim_fault::*member;
    int64_t minimum;
    int64_t maximum;
};

constexpr key_row keys[] = {
    {"torn", &sim_fault::bytes, 0, INT32_MAX},  {"bytes", &sim_fault::bytes, 1, INT32_MAX},
    {"bit", &sim_fault::bytes, 0, INT32_MAX},   {"partition", &sim_fault::partition, 0, 9},
    {"seconds", &sim_fault::seconds, 0, 86400}, {"fd", &sim_fault::fd, 0, 2},
    {"receiver", &sim_fault::receiver, 1, 2},
};

// Reads a decimal number and moves `*text` behind it. False unless it lies in the range.
bool take_number(const char **text, int64_t minimum, int64_t maximum, int64_t *number)
{
    if (!isdigit(static_cast<unsigned char>(**text)))
        return false;
    char *end = nullptr;
    errno = 0;
    const long long value = strtoll(*text, &end, 10);
    if (errno != 0 || value < minimum || value > maximum)
        return false;
    *text = end;
    *number = value;
    return true;
}

// Whether the blank-separated list holds the `length` characters at `word`.
bool has_word(const char *list, const char *word, size_t length)
{
    for (const char *at = list; *at != '\0'; at += strspn(at, " ")) {
        const size_t size = strcspn(at, " ");
        if (size == length && memcmp(at, word, length) == 0)
            return true;
        at += size;
    }
    return false;
}

// The pairs behind ":"; null when all is well, else what is wrong.
const char *parse_pairs(const char *at, const fault_grammar *grammar, sim_fault *fault,
                        bool *needed_seen)
{
    for (;;) { // ends with the text
        const size_t length = strcspn(at, "=,");
        if (at[length] != '=' || !has_word(grammar->keys, at, length))
            return "unknown key";
        const key_row *row = nullptr;
        for (const key_row &candidate : keys)
            if (strlen(candidate.name) == length && memcmp(candidate.name, at, length) == 0)
                row = &candidate;
        if (grammar->needed_key != nullptr && strncmp(grammar->needed_key, at, length) == 0)
            *needed_seen = true;
        at += length + 1;
        if (row == nullptr || !take_number(&at, row->minimum, row->maximum, &(fault->*row->member)))
            return "a value is no number or out of its range";
        if (*at == '\0')
            return nullptr;
        if (*at++ != ',')
            return "something behind a value";
    }
}

const char *parse_rest(const char *at, const fault_grammar *grammar, sim_fault *fault)
{
    bool at_seen = false;
    if (*at == '@' && (grammar->parts & part_at) != 0) {
        at++;
        if (!take_number(
                &at, fault->kind == fault_server_stall || fault->kind == fault_server_cut ? 0 : 1,
                INT32_MAX, &fault->at))
            return "no usable number behind \"@\"";
        at_seen = true;
    }
    if ((grammar->parts & part_at_needed) != 0 && !at_seen)
        return "\"@N\" is missing";
    if (*at == 'x' && (grammar->parts & part_times) != 0) {
        at++;
        if (!take_number(&at, 1, INT32_MAX, &fault->times))
            return "no usable number behind \"x\"";
    }
    bool needed_seen = grammar->needed_key == nullptr;
    if (*at == ':') {
        const char *wrong = parse_pairs(at + 1, grammar, fault, &needed_seen);
        if (wrong != nullptr)
            return wrong;
    } else if (*at != '\0') {
        return "something behind it that does not belong there";
    }
    return needed_seen ? nullptr : "a key is missing";
}

} // namespace

int fault_parse(const char *specification, sim_fault *fault, char *error, size_t error_size)
{
    for (int kind = 0; kind < fault_kind_count; kind++) {
        const size_t length = strlen(fault_descriptions[kind].name);
        if (strncmp(specification, fault_descriptions[kind].name, length) != 0 ||
            strchr("@x:", specification[length]) == nullptr) // the terminator counts as found
            continue;
        *fault = {static_cast<fault_kind>(kind), 1, grammars[kind].times, -1, -1, 1, -1, -1};
        const char *wrong = parse_rest(specification + length, &grammars[kind], fault);
        if (wrong == nullptr)
            return 0;
        snprintf(error, error_size, "fault \"%s\": %s (the form is %s)", specification, wrong,
                 fault_descriptions[kind].form);
        return -1;
    }
    snprintf(error, error_size, "fault \"%s\": there is no fault of this name", specification);
    return -1;
}

bool fault_hits(const sim_fault *fault, int64_t number)
{
    return number >= fault->at && number - fault->at < fault->times;
}

const fault_description fault_descriptions[fault_kind_count] = {
    {"cut", "cut@N[:torn=K]",
     "the power fails after flash write N, of which only K bytes arrived if K is given"},
    {"write-error", "write-error@N[xM]", "flash writes N to N+M-1 fail"},
    {"short-write", "short-write@N[xM][:bytes=K]",
     "flash writes N to N+M-1 write only K bytes (half if not given)"},
    {"bit-flip", "bit-flip@N[xM][:bit=K]",
     "bit K (chosen by --seed if not given) of flash writes N to N+M-1 is stored inverted"},
    {"read-error", "read-error@N[xM]", "flash reads N to N+M-1 fail"},
    {"open-error", "open-error[@N][xM][:partition=P]",
     "opens N to N+M-1 (the first if not given) of partition P, or of each partition, fail"},
    {"gpio-refuse", "gpio-refuse[@N][xM]",
     "the GPIO device refuses kicks N to N+M-1 (all if not given)"},
    {"receiver-missing", "receiver-missing[:receiver=R]",
     "nobody receives status datagrams (R: 1 .upgrd_info, 2 .syscfg-server)"},
    {"receiver-stuck", "receiver-stuck[:receiver=R]",
     "the receivers exist and do not read; eleven datagrams fit into each one's queue"},
    {"script-hang", "script-hang", "the network-stop script does not end"},
    {"closed", "closed:fd=F", "the program starts with descriptor F (0 to 2) closed"},
    {"watchdog", "watchdog:seconds=S",
     "the device is reset when S seconds of virtual time pass without a kick"},
    {"server-stall", "server-stall@N", "each connection goes silent after N bytes"},
    {"server-drip", "server-drip[:bytes=K,seconds=S]",
     "the server sends K bytes (1) every S seconds (1) of virtual time"},
    {"server-cut", "server-cut@N", "each connection ends after N bytes"},
};
