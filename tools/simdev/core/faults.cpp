// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/simdev/core/faults.h"

#include <array>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace {

constexpr int64_t for_ever = INT64_MAX;

struct {
    std::array<sim_fault, fault_capacity> faults;
    size_t count;
} fault_state;

// Reads a decimal number and moves `*text` behind it. False unless it lies in the range.
bool take_number(const char **text, int64_t minimum, int64_t maximum, int64_t *number)
{
    if (!isdigit(static_cast<unsigned char>(**text)))
        return false;
    char *end = nullptr;
    const long long value = strtoll(*text, &end, 10); // saturates
    if (value < minimum || value > maximum)
        return false;
    *text = end;
    *number = value;
    return true;
}

const fault_key *find_key(const fault_row *row, std::string_view name)
{
    for (const fault_key &key : row->keys)
        if (key.name != nullptr && key.name == name)
            return &key;
    return nullptr;
}

// The pairs behind ":"; null when all is well, else what is wrong.
const char *parse_pairs(const char *at, const fault_row *row, sim_fault *fault, bool *needed_seen)
{
    for (;;) { // ends with the text
        const size_t length = strcspn(at, "=,");
        const fault_key *key = at[length] == '=' ? find_key(row, {at, length}) : nullptr;
        if (key == nullptr)
            return "unknown key";
        *needed_seen = *needed_seen || key->needed;
        at += length + 1;
        if (!take_number(&at, key->minimum, key->maximum, &(fault->*key->member)))
            return "a value is no number or out of its range";
        if (*at == '\0')
            return nullptr;
        if (*at++ != ',')
            return "something behind a value";
    }
}

// What stands behind the name; null when all is well, else what is wrong.
const char *parse_rest(const char *at, const fault_row *row, sim_fault *fault)
{
    if (*at == '@' && row->at != fault_at::none) {
        at++;
        if (!take_number(&at, row->first, INT32_MAX, &fault->at))
            return "no usable number behind \"@\"";
    } else if (row->at == fault_at::needed) {
        return "\"@N\" is missing";
    }
    if (*at == 'x' && row->repeats) {
        at++;
        if (!take_number(&at, 1, INT32_MAX, &fault->times))
            return "no usable number behind \"x\"";
    }
    bool needed_seen = !row->keys[0].needed;
    if (*at == ':') {
        const char *wrong = parse_pairs(at + 1, row, fault, &needed_seen);
        if (wrong != nullptr)
            return wrong;
    } else if (*at != '\0') {
        return "something behind it that does not belong there";
    }
    return needed_seen ? nullptr : "a key is missing";
}

} // namespace

int fault_parse(const char *text, sim_fault *fault, char *error, size_t error_size)
{
    for (int kind = 0; kind < fault_kind_count; kind++) {
        const fault_row &row = fault_rows[kind];
        const size_t length = strlen(row.name);
        if (strncmp(text, row.name, length) != 0 ||
            strchr("@x:", text[length]) == nullptr) // the terminator counts as found
            continue;
        *fault = {static_cast<fault_kind>(kind), 1, row.times, -1, -1, 1};
        const char *wrong = parse_rest(text + length, &row, fault);
        if (wrong == nullptr)
            return 0;
        snprintf(error, error_size, "fault \"%s\": %s (the form is %s)", text, wrong, row.form);
        return -1;
    }
    snprintf(error, error_size, "fault \"%s\": there is no fault of this name", text);
    return -1;
}

int faults_start(const char *list, char *error, size_t error_size)
{
    fault_state = {};
    while (*list != '\0') {
        char text[256];
        const size_t length = strcspn(list, ";");
        if (length >= sizeof text || fault_state.count == fault_capacity) {
            snprintf(error, error_size, "%s",
                     length >= sizeof text ? "too long a fault" : "too many faults");
            return -1;
        }
        memcpy(text, list, length);
        text[length] = '\0';
        if (length > 0 &&
            fault_parse(text, &fault_state.faults[fault_state.count++], error, error_size) < 0)
            return -1;
        list += length + (list[length] == ';' ? 1 : 0);
    }
    return 0;
}

std::span<const sim_fault> given_faults()
{
    return std::span(fault_state.faults).first(fault_state.count);
}

const sim_fault *find_fault(fault_kind kind, int64_t number, int64_t place)
{
    for (const sim_fault &fault : given_faults())
        if (fault.kind == kind && (fault.place < 0 || fault.place == place) && number >= fault.at &&
            number - fault.at < fault.times)
            return &fault;
    return nullptr;
}

int fault_index(const sim_fault *fault)
{
    return fault == nullptr ? -1 : static_cast<int>(fault - fault_state.faults.data());
}

const fault_row fault_rows[fault_kind_count] = {
    {.name = "cut",
     .form = "cut@N[:torn=K]",
     .text = "the power fails after flash write N, of which only K bytes arrived if K is given",
     .at = fault_at::needed,
     .keys = {{"torn", &sim_fault::bytes, 0, INT32_MAX, false}}},
    {.name = "write-error",
     .form = "write-error@N[xM]",
     .text = "flash writes N to N+M-1 fail",
     .at = fault_at::needed,
     .repeats = true},
    {.name = "short-write",
     .form = "short-write@N[xM][:bytes=K]",
     .text = "flash writes N to N+M-1 write only K bytes (half if not given)",
     .at = fault_at::needed,
     .repeats = true,
     .keys = {{"bytes", &sim_fault::bytes, 0, INT32_MAX, false}}},
    {.name = "bit-flip",
     .form = "bit-flip@N[xM][:bit=K]",
     .text = "bit K (chosen by --seed if not given) of flash writes N to N+M-1 is stored inverted",
     .at = fault_at::needed,
     .repeats = true,
     .keys = {{"bit", &sim_fault::bytes, 0, INT32_MAX, false}}},
    {.name = "read-error",
     .form = "read-error@N[xM]",
     .text = "flash reads N to N+M-1 fail",
     .at = fault_at::needed,
     .repeats = true},
    {.name = "open-error",
     .form = "open-error[@N][xM][:partition=P]",
     .text = "opens N to N+M-1 (the first if not given) of partition P, or of each partition, fail",
     .at = fault_at::optional,
     .repeats = true,
     .keys = {{"partition", &sim_fault::place, 0, 9, false}}},
    {.name = "seek-error",
     .form = "seek-error@N[xM]",
     .text = "flash seeks N to N+M-1 fail",
     .at = fault_at::needed,
     .repeats = true},
    {.name = "sync-slow",
     .form = "sync-slow[@N][xM]:seconds=S",
     .text = "syncs N to N+M-1 (all if not given) take S seconds of virtual time",
     .at = fault_at::optional,
     .repeats = true,
     .times = for_ever,
     .keys = {{"seconds", &sim_fault::seconds, 1, 86400, true}}},
    {.name = "gpio-refuse",
     .form = "gpio-refuse[@N][xM]",
     .text = "the GPIO device refuses kicks N to N+M-1 (all if not given)",
     .at = fault_at::optional,
     .repeats = true,
     .times = for_ever},
    {.name = "receiver-missing",
     .form = "receiver-missing[:receiver=R]",
     .text = "nobody receives status datagrams (R: 1 .upgrd_info, 2 .syscfg-server)",
     .times = for_ever,
     .keys = {{"receiver", &sim_fault::place, 1, 2, false}}},
    {.name = "receiver-stuck",
     .form = "receiver-stuck[:receiver=R]",
     .text = "the receivers exist and do not read; eleven datagrams fit into each one's queue",
     .times = for_ever,
     .keys = {{"receiver", &sim_fault::place, 1, 2, false}}},
    {.name = "script-hang", .form = "script-hang", .text = "the network-stop script does not end"},
    {.name = "closed",
     .form = "closed:fd=F",
     .text = "the program starts with descriptor F (0 to 2) closed",
     .keys = {{"fd", &sim_fault::place, 0, 2, true}}},
    {.name = "watchdog",
     .form = "watchdog:seconds=S",
     .text = "the device is reset when S seconds pass without a kick",
     .keys = {{"seconds", &sim_fault::seconds, 1, 86400, true}}},
    {.name = "socket-error",
     .form = "socket-error[@N][xM]",
     .text = "network sockets N to N+M-1 (the first if not given) cannot be made",
     .at = fault_at::optional,
     .repeats = true},
    {.name = "server-stall",
     .form = "server-stall@N",
     .text = "each connection goes silent after N bytes",
     .at = fault_at::needed,
     .first = 0,
     .times = for_ever},
    {.name = "server-drip",
     .form = "server-drip[:bytes=K,seconds=S]",
     .text = "the server sends K bytes (1) every S seconds (1) of virtual time",
     .times = for_ever,
     .keys = {{"bytes", &sim_fault::bytes, 1, INT32_MAX, false},
              {"seconds", &sim_fault::seconds, 0, 86400, false}}},
    {.name = "server-cut",
     .form = "server-cut@N",
     .text = "each connection ends after N bytes",
     .at = fault_at::needed,
     .first = 0,
     .times = for_ever},
};
