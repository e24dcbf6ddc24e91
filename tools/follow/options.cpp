// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/follow/options.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <getopt.h>

#include "platform/device.h"

namespace follow {

namespace {

constexpr mode_t default_mode = 0600;
constexpr mode_t mode_limit = 0777;
constexpr double seconds_limit = 1e9;
constexpr double speed_limit = 1e6;
constexpr long port_limit = 65535;
constexpr int64_t default_linger_ms = 30'000;

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

enum option_code {
    option_socket = 256,
    option_mode,
    option_wait,
    option_stay,
    option_json,
    option_state,
    option_run,
    option_web,
    option_linger,
    option_record,
    option_replay,
    option_speed
};

constexpr option long_options[] = {
    {"socket", required_argument, nullptr, option_socket},
    {"mode", required_argument, nullptr, option_mode},
    {"wait", required_argument, nullptr, option_wait},
    {"stay", no_argument, nullptr, option_stay},
    {"json", no_argument, nullptr, option_json},
    {"quiet", no_argument, nullptr, 'q'},
    {"state", required_argument, nullptr, option_state},
    {"run", required_argument, nullptr, option_run},
#ifdef UPGRADE_FOLLOW_WEB
    {"web", required_argument, nullptr, option_web},
    {"linger", required_argument, nullptr, option_linger},
#endif
    {"record", required_argument, nullptr, option_record},
    {"replay", required_argument, nullptr, option_replay},
    {"speed", required_argument, nullptr, option_speed},
    {"help", no_argument, nullptr, 'h'},
    {"version", no_argument, nullptr, 'V'},
    {nullptr, 0, nullptr, 0},
};

// A number from 0 to `limit`.
bool read_number(const char *text, double limit, double *value)
{
    char *end = nullptr;
    *value = strtod(text, &end);
    return end != text && *end == '\0' && std::isfinite(*value) && *value >= 0 && *value <= limit;
}

bool read_milliseconds(const char *text, int64_t *milliseconds)
{
    double seconds = 0;
    if (!read_number(text, seconds_limit, &seconds))
        return false;
    *milliseconds = static_cast<int64_t>(seconds * 1000);
    return true;
}

bool read_mode(const char *text, mode_t *mode)
{
    char *end = nullptr;
    const unsigned long value = strtoul(text, &end, 8);
    *mode = static_cast<mode_t>(value);
    return text[0] >= '0' && text[0] <= '7' && *end == '\0' && value <= mode_limit;
}

// "8080", "0.0.0.0:8080" or "[::1]:8080".
bool read_web(const char *text, follow_options *options)
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

bool take_option(follow_options *options, int code, const char *value)
{
    switch (code) {
    case option_socket:
        options->socket_path = value;
        return true;
    case option_mode:
        return read_mode(value, &options->mode);
    case option_wait:
        return read_milliseconds(value, &options->wait_ms);
    case option_stay:
        return options->stay = true;
    case option_json:
        return options->json = true;
    case 'q':
        return options->quiet = true;
    case option_state:
        options->state_file = value;
        return true;
    case option_run:
        options->command = value;
        return true;
    case option_web:
        return read_web(value, options);
    case option_linger:
        return read_milliseconds(value, &options->linger_ms);
    case option_record:
        options->record_file = value;
        return true;
    case option_replay:
        options->replay_file = value;
        return true;
    default:
        return read_number(value, speed_limit, &options->speed);
    }
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
    *options = {};
    options->socket_path = status_receivers[0];
    options->mode = default_mode;
    options->speed = 1;
    options->wait_ms = -1;
    options->linger_ms = default_linger_ms;
    options->web_port = -1;
    strcpy(options->web_address.data(), "127.0.0.1");
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
        if (!take_option(options, code, optarg)) {
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
