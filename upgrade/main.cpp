// SPDX-License-Identifier: GPL-2.0-or-later
//
// One run, one upgrade: download, stop networking, prepare, write and verify.
#include <csignal>
#include <cstdio>
#include <cstring>
#include <unistd.h>

#include "download/downloaders.h"
#include "flash/flash.h"
#include "platform/descriptors.h"
#include "platform/device.h"
#include "upgrade/context.h"
#include "upgrade/process.h"
#include "upgrade/script.h"
#include "upgrade/status.h"
#include "upgrade/watchdog.h"

namespace {

constexpr int attempt_count = 3;
constexpr unsigned rest_before_done_seconds = 2;

enum exit_status {
    exit_done = 0,
    exit_refused = 1, // nothing was written
    exit_failed = 2,  // three attempts at writing failed
};

char default_url[] = "http://" DEFAULT_SERVER "/upgrade/flash.pkg";

constexpr char help_text[] = "Usage: upgrade [URL]\n"
                             "\n"
                             "Downloads a firmware package and writes it to the device's flash. "
                             "Without a URL the package is\n"
                             "%s.\n"
                             "\n"
                             "  http://HOST[:PORT]/PATH    https://HOST[:PORT]/PATH\n"
                             "  ftp://[USER[:PASSWORD]@]HOST[:PORT]/PATH    tftp://HOST/FILE\n"
                             "\n"
                             "  -h, --help       print this text and do nothing else\n"
                             "  -V, --version    print the version and do nothing else\n"
                             "\n"
                             "Exit status: 0 upgraded, 1 nothing was written, 2 writing failed.\n";

// Answers an argument that is a question and no URL. Whether it was one.
bool answer_question(const char *argument)
{
    const auto is = [argument](const char *text) { return strcmp(argument, text) == 0; };
    if (is("--help") || is("-h"))
        printf(help_text, default_url);
    else if (is("--version") || is("-V"))
        printf("upgrade %s\n", UPGRADE_VERSION);
    else
        return false;
    return true;
}

// Opens the downloader and fetches the package. False once the failure is reported.
bool download_package(upgrade_context *context, char *url)
{
    fprintf(stderr, "download start ...\n");
    context->downloader = downloader_open(url);
    if (context->downloader == nullptr) {
        send_error(context, "INVALID URL");
        fprintf(stderr, "cannot open url: %s\n", url);
        return false;
    }
    init_package_struct(&context->package);
    read_watchdog_setting(&context->watchdog);
    if (context->downloader->ops->download(context->downloader, context->iobuf, upgrade_callback,
                                           context) < 0) {
        send_error(context, "DOWNLOAD FAILED");
        fprintf(stderr, "cannot download url: %s\n", url);
        return false;
    }
    return true;
}

void report_stage(upgrade_context *context, const char *stage)
{
    context->stage = stage;
    send_stage(context);
}

// One attempt at all parts.
bool write_and_verify(upgrade_context *context)
{
    report_stage(context, "WRITING");
    if (write_package(context) < 0) {
        fprintf(stderr, "write package failed!\n");
        return false;
    }
    report_stage(context, "VERIFYING");
    if (verify_package(context) < 0) {
        fprintf(stderr, "verify package failed!\n");
        return false;
    }
    return true;
}

} // namespace

int main(int /*argc*/, char **argv)
{
    open_standard_descriptors();
    if (argv[1] != nullptr && answer_question(argv[1]))
        return exit_done;
    signal(SIGPIPE, SIG_IGN); // a write to a closed peer is a failed write, not the end
    char *url = argv[1] != nullptr ? argv[1] : default_url;
    upgrade_context context = {};
    context.iobuf = iobuf_create(package_block_size, package_block_count);
    if (context.iobuf == nullptr) {
        fprintf(stderr, "cannot create iobuf %d*%d\n", package_block_size, package_block_count);
        return exit_refused;
    }
    if (!download_package(&context, url))
        return exit_refused;
    // Before the package is looked at: nothing on the network may use what the upgrade replaces.
    run_script(network_stop_script);
    if (process_package(&context) < 0) {
        send_error(&context, "INVALID PACKAGE");
        fprintf(stderr, "bad package!\n");
        return exit_refused;
    }
    for (int attempt = 0; attempt < attempt_count; attempt++) {
        if (write_and_verify(&context)) {
            sleep(rest_before_done_seconds);
            report_stage(&context, "DONE");
            return exit_done;
        }
    }
    send_error(&context, "UPGRADE FAILED");
    fprintf(stderr, "upgrade failed!\n");
    return exit_failed;
}
