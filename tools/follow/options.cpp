// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/follow/options.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <getopt.h>
#include <iterator>

namespace follow {

namespace {

constexpr mode_t mode_limit = 0777;
constexpr double seconds_limit = 1e9;
constexpr double speed_limit = 1e6;
constexpr long port_limit = 65535;

constexpr char usage[] =
    R"(usage: upgrade-follow [OPTION...]
Follows an upgrade by its status datagrams.

  --socket PATH        bind PATH (/tmp/.upgrd_info)
  --mode OCTAL         permissions of the socket (600)
  --wait S             end with status 3 when no upgrade begins within S seconds
  --stay               go on after an outcome, with the next upgrade
  --json               print one JSON object a line for each change
  -q, --quiet          print nothing
  --state FILE         keep the present state in FILE, as JSON
  --run COMMAND        run COMMAND at the outcome, with UPGRADE_OUTCOME, UPGRADE_STATUS,
                       UPGRADE_ERROR and UPGRADE_ATTEMPT in its environment
)"
#ifdef UPGRADE_FOLLOW_WEB
    R"(  --web [ADDRESS:]PORT serve the page and the state (on 127.0.0.1)
  --linger S           go on serving for S seconds after the outcome (30)
)"
#endif
    R"(  --record FILE        write the datagrams with their times to FILE
  --replay FILE        follow a recording in place of the socket
  --speed X            replay X times as fast; 0: without waiting (1)
  -h, --help           print this
  -V, --version        print the version

Exit status: 0 to 2 as the upgrade's own, 3: none began, 4: it was lost, 125: own troubles.
)";

// A number from 0 to `limit`.
bool read_number(const char *text, double limit, double *value)
{
    char *end = nullptr;
    *value = strtod(text, &end);
    return end != text && *end == '\0' && std::isfinite(*value) && *value >= 0 && *value <= limit;
}

bool read_speed(follow_options *options, const char *text)
{
    return read_number(text, speed_limit, &options->speed);
}

bool read_mode(follow_options *options, const char *text)
{
    char *end = nullptr;
    const unsigned long value = strtoul(text, &end, 8);
    options->mode = static_cast<mode_t>(value);
    return text[0] >= '0' && text[0] <= '7' && *end == '\0' && value <= mode_limit;
}

// "8080", "0.0.0.0:8080" or "[::1]:8080".
[[maybe_unused]] bool read_web(follow_options *options, const char *text)
{
    const char *colon = strrchr(text, ':');
    const char *port = colon == nullptr ? text : colon + 1;
    char *end = nullptr;
    const long value = strtol(port, &end, 10);
    if (port[0] < '0' || port[0] > '9' || *end != '\0' || value > port_limit)
        return false;
    options->web_port = static_cast<int>(value);
    if (colon == nullptr)
        return true;
    size_t size = static_cast<size_t>(colon - text);
    if (size >= 2 && text[0] == '[' && text[size - 1] == ']') {
        text++;
        size -= 2;
    }
    if (size == 0 || size >= options->web_address.size())
        return false;
    options->web_address = {};
    memcpy(options->web_address.data(), text, size);
    return true;
}

// An option and where its value goes: one of the four.
struct option_row {
    const char *name;
    bool follow_options::*flag = nullptr; // takes no value
    const char *follow_options::*text = nullptr;
    int64_t follow_options::*seconds = nullptr;
    bool (*read)(follow_options *options, const char *text) = nullptr;
};

constexpr option_row rows[] = {
    {.name = "socket", .text = &follow_options::socket_path},
    {.name = "mode", .read = read_mode},
    {.name = "wait", .seconds = &follow_options::wait_ms},
    {.name = "stay", .flag = &follow_options::stay},
    {.name = "json", .flag = &follow_options::json},
    {.name = "quiet", .flag = &follow_options::quiet},
    {.name = "state", .text = &follow_options::state_file},
    {.name = "run", .text = &follow_options::command},
#ifdef UPGRADE_FOLLOW_WEB
    {.name = "web", .read = read_web},
    {.name = "linger", .seconds = &follow_options::linger_ms},
#endif
    {.name = "record", .text = &follow_options::record_file},
    {.name = "replay", .text = &follow_options::replay_file},
    {.name = "speed", .read = read_speed},
};

bool take_option(follow_options *options, const option_row &row, const char *value)
{
    double seconds = 0;
    if (row.flag != nullptr)
        options->*row.flag = true;
    else if (row.text != nullptr)
        options->*row.text = value;
    else if (row.read != nullptr)
        return row.read(options, value);
    else if (read_number(value, seconds_limit, &seconds))
        options->*row.seconds = static_cast<int64_t>(seconds * 1000);
    else
        return false;
    return true;
}

options_result wrong(const char *what, const char *why)
{
    fprintf(stderr, "upgrade-follow: %s%s\n", what, why);
    return options_wrong;
}

options_result print(const char *text)
{
    if (fputs(text, stdout) == EOF || fflush(stdout) != 0)
        return wrong("standard output: ", strerror(errno));
    return options_over;
}

} // namespace

options_result read_options(follow_options *options, int argc, char **argv)
{
    option long_options[std::size(rows) + 3] = {{"help", no_argument, nullptr, 'h'},
                                                {"version", no_argument, nullptr, 'V'}};
    for (size_t row = 0; row < std::size(rows); row++)
        long_options[2 + row] = {rows[row].name,
                                 rows[row].flag != nullptr ? no_argument : required_argument,
                                 nullptr, 0};
    opterr = 0;
    int index = -1;
    int code = 0;
    while ((code = getopt_long(argc, argv, ":qhV", long_options, &index)) >= 0) {
        if (code == 'h')
            return print(usage);
        if (code == 'V')
            return print("upgrade-follow " UPGRADE_VERSION "\n");
        if (code == '?' || code == ':')
            return wrong(argv[optind - 1],
                         code == '?' ? ": no such option" : ": a value is missing");
        if (code == 'q') {
            options->quiet = true;
        } else if (!take_option(options, rows[index - 2], optarg)) {
            fprintf(stderr, "upgrade-follow: --%s: not a value for it: %s\n",
                    long_options[index].name, optarg);
            return options_wrong;
        }
    }
    if (optind < argc)
        return wrong(argv[optind], ": there are no arguments but options");
    if (options->replay_file != nullptr && options->record_file != nullptr)
        return wrong("--record", ": a recording is not recorded again");
    return options_follow;
}

} // namespace follow
