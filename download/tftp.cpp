// SPDX-License-Identifier: GPL-2.0-or-later
#include "download/tftp.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "download/tftp_transfer.h"
#include "platform/diagnostic.h"

namespace {

constexpr int tftp_block_size = 512;

constexpr diagnostic_place at_download = {diagnostic_tftp, 466, "tftp_downloader_download"};
constexpr diagnostic_place at_open_memory = {diagnostic_tftp, 497, "tftp_downloader_open"};
constexpr diagnostic_place at_open_url = {diagnostic_tftp, 505, "tftp_downloader_open"};

struct tftp_downloader {
    downloader base;
    char *file;    // in the private copy of the URL
    hostent *host; // as the look-up returned it; null for an unknown host
};

int tftp_downloader_length(downloader * /*self*/)
{
    return 0;
}

int tftp_downloader_download(downloader *self, iobuf *buffer, progress_callback callback,
                             void *argument)
{
    const auto *tftp = reinterpret_cast<const tftp_downloader *>(self);
    if (tftp->host == nullptr) {
        diagnose(at_download, "unknown host\n");
        return -1;
    }
    return do_tftp(tftp_cmd_get, tftp->host, tftp->file, buffer, callback, argument, tftp_port,
                   tftp_block_size);
}

int tftp_downloader_result(downloader * /*self*/)
{
    return 0;
}

constexpr downloader_ops tftp_downloader_ops = {
    .length = tftp_downloader_length,
    .download = tftp_downloader_download,
    .result = tftp_downloader_result,
};

} // namespace

downloader *tftp_downloader_open(char *url)
{
    constexpr char prefix[] = "tftp://";
    const char *rest = url;
    if (strncmp(url, prefix, sizeof prefix - 1) == 0)
        rest += sizeof prefix - 1;
    auto *tftp = static_cast<tftp_downloader *>(calloc(1, sizeof(tftp_downloader)));
    if (tftp == nullptr) {
        diagnose(at_open_memory, "malloc: %s\n", strerror(errno));
        return nullptr;
    }
    char *host = strdup(rest);
    char *slash = host == nullptr ? nullptr : strchr(host, '/');
    if (slash == nullptr) {
        if (host != nullptr)
            diagnose(at_open_url, "FUNCTION_FAILED\n");
        free(host);
        free(tftp);
        return nullptr;
    }
    *slash = '\0';
    tftp->base.ops = &tftp_downloader_ops;
    tftp->file = slash + 1;
    tftp->host = gethostbyname(host); // NOLINT(clang-analyzer-unix.Malloc): `file` points into it
    return &tftp->base;
}
