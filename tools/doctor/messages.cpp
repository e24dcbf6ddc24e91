// SPDX-License-Identifier: GPL-2.0-or-later
//
// The table of messages but those of the download. After a change `scripts/check-messages --write`
// makes docs/troubleshooting.md anew.
#include "tools/doctor/message_row.h"

#include <array>

#include "tools/doctor/remedies.h"

namespace doctor {

namespace {

using enum event;

constexpr auto run = std::to_array<message_row>({
    {"cannot create iobuf %d*%d\n", not_started, weight_cause,
     "There is no memory for the table of blocks.", restart_device},
    {"cannot read %s: %s\n", not_started, weight_cause,
     "The device's configuration {1} is there and cannot be read: {2}. The run ends, since the key "
     "may be in it.",
     "Let root read it: mode 600, and a file system that is mounted."},
    {"download start ...\n", start, weight_trace, "A run begins.", ""},
    {"url = %s\n", url, weight_trace, "The URL of this run, its password included.", ""},
    {"cannot open url: %s\n", invalid_url, weight_outcome,
     "The run ends before any download: exit status 1, nothing was changed.", ""},
    {"cannot download url: %s\n", download_failed, weight_outcome,
     "The run ends with the download: exit status 1, the network runs, no partition was touched.",
     ""},
    {"bad package!\n", invalid_package, weight_outcome,
     "The package is refused: exit status 1, no partition was touched, but the network was "
     "stopped.",
     ""},
    {"write package failed!\n", none, weight_consequence,
     "An attempt at writing failed; three are made.", replace_flash},
    {"verify package failed!\n", none, weight_consequence,
     "An attempt at reading back could not open a partition; three attempts are made.",
     replace_flash},
    {"upgrade failed!\n", upgrade_failed, weight_outcome,
     "Three attempts failed: exit status 2, partitions may be half written.", ""},
    {"UPGRD_STAGE=DOWNLOADING", download_stage, weight_progress,
     "The first piece of the package has come.", ""},
    {"UPGRD_STAGE=WRITING", write_stage, weight_progress,
     "The package is accepted; writing begins, once an attempt.", ""},
    {"UPGRD_STAGE=VERIFYING", verify_stage, weight_progress,
     "All parts are written; they are read back.", ""},
    {"UPGRD_STAGE=DONE", done_stage, weight_outcome, "The upgrade is complete: exit status 0.", ""},
    {"UPGRD_STAGE=%s\n", none, weight_progress, "A stage that this version does not have.", ""},
    {"UPGRD_PERCENTAGE=%d", percentage, weight_progress, "How much of the stage is done.", ""},
    {"UPGRD_ERROR=INVALID URL", invalid_url, weight_outcome,
     "The run ends before any download: exit status 1, nothing was changed.", ""},
    {"UPGRD_ERROR=DOWNLOAD FAILED", download_failed, weight_outcome,
     "The run ends with the download: exit status 1, the network runs, no partition was touched.",
     ""},
    {"UPGRD_ERROR=INVALID PACKAGE", invalid_package, weight_outcome,
     "The package is refused: exit status 1, no partition was touched, but the network was "
     "stopped.",
     ""},
    {"UPGRD_ERROR=UPGRADE FAILED", upgrade_failed, weight_outcome,
     "Three attempts failed: exit status 2, partitions may be half written.", ""},
    {"UPGRD_ERROR=%s\n", none, weight_notice, "An error that this version does not have.", ""},
    {"sendto %s error: %s\n", none, weight_notice,
     "Nobody listens on the status socket {1}: the display learns nothing, the upgrade goes on.",
     "Start the receiver (upgrade-follow, the web page's service) before the upgrade."},
    {"reset watchdog error: %s\n", none, weight_notice,
     "The GPIO device refused to feed the watchdog, which resets the device when its time is over.",
     "Check that /dev/gpio is there and takes request 1.\n"
     "Set WD in the system configuration to the watchdog's line."},
});

constexpr auto package_checks = std::to_array<message_row>({
    {"error reading package\n", package, weight_likely,
     "The download brought no package header: nothing at all, or something else.",
     "Look at what the server gives: its file may be missing or empty.\n"
     "Check that the URL names a package: fwpkg show."},
    {"Bad magic: %x\n", package, weight_package_cause,
     "What was downloaded is no package: it begins with {1}, not dbad475e.",
     "Check the URL: it may name another file or an error page.\n"
     "Put the package on the server again, in binary mode."},
    {"Bad version: %d\n", package, weight_package_cause,
     "The package has format version {1}; the device knows 1 alone.", make_again},
    {"decrypt using: %s\n", package, weight_trace,
     "The package is deciphered; the text behind the colon is the key. Keep it secret.", ""},
    {"No key!\n", package, weight_package_cause,
     "The package is enciphered, and the device has no key.",
     "Set VENDOR_KEY (or VENID) in the system configuration.\n"
     "Make the package in clear for devices without a key."},
    {"decrypt package failed\n", package, weight_likely,
     "The package's encryption does not suit the device: it is in clear and the device has a "
     "VENDOR_KEY, or its cipher is unknown.",
     "Make the package with the device's key: encrypt = true, fwpkg make --key-file.\n"
     "Judge it with fwpkg check."},
    {"Bad package length!\n", package, weight_package_cause,
     "The download has more or less bytes than the package's header says: it was cut, or changed.",
     make_again},
    {"Checksum error!\n", package, weight_package_cause,
     "The package's checksum is wrong: it was damaged on the way or on the server, or it was "
     "deciphered with another key than it was made with.",
     set_key},
    {"invalid package\n", package, weight_likely, "The package's length or checksum is wrong.",
     make_again},
    {"invalid size\n", package, weight_package_cause,
     "An entry of the package's part table does not lie within its first 4096 bytes.", make_again},
    {"invalid part header size: %d\n", package, weight_package_cause,
     "An entry of the package's part table has an impossible length.", make_again},
    {"error while reading part info\n", package, weight_likely,
     "The package's part table cannot be read.", make_again},
    {"error reading package parts\n", package, weight_likely,
     "The package's part table cannot be read.", make_again},
    {"cannot open target device\n", package, weight_package_cause,
     "A part's partition cannot be opened on this device.",
     "Check that the device has /dev/flaN for each of the parts (fwpkg show) and that the program "
     "runs as root.\n"
     "Make parts that not every device has room for optional."},
    {"not enougth space on target device\n", package, weight_package_cause,
     "A part is larger than its partition.", smaller_package},
    {"data of part #%d is not in the package\n", package, weight_package_cause,
     "Part {1} points at data that the package does not have.", make_again},
});

constexpr auto flash = std::to_array<message_row>({
    {"writing partition %d not supported\n", no_partition, weight_flash_cause,
     "The package has a part of type {1}, which is never written; only 2, 3 and 4 are.",
     "Make the package without that part.\n"
     "The parts before it have been written three times: judge them with fwdoctor flash."},
    {"cannot open %s for writing\n\n", no_partition, weight_flash_cause,
     "The partition {1} cannot be opened.",
     "Check that it is there, that root may write it, and that nothing else uses it.\n"
     "Run the upgrade again."},
    {"open %s for writing\n\n", open_partition, weight_progress,
     "The partition is opened; in the stage VERIFYING this means for reading.", ""},
    {"error writing to %s\n", none, weight_flash_cause, "Writing to {1} was given up.",
     replace_flash},
    {"write block #%d failed: No space left on device\n", retry, weight_notice,
     "The partition is full before block {1}: the part is larger than the partition, and the write "
     "is tried again without end.",
     smaller_package},
    {"write block #%d failed: %s\n", retry, weight_notice,
     "The flash refused block {1} ({2}); the write is tried again without end.", replace_flash},
    {"partition checksum seek error: %s\n\n", no_trailer, weight_notice,
     "The end of the partition could not be found ({1}): its checksum is in the wrong place.",
     replace_flash},
    {"partition checksum write error: %s\n\n", no_trailer, weight_notice,
     "The partition's checksum could not be written ({1}): a boot loader refuses it.",
     replace_flash},
    {"read block #%d failed: %s\n", unreadable, weight_notice,
     "Block {1} could not be read back ({2}); that does not fail the upgrade.", replace_flash},
    {"read last block #%d failed: %s\n", unreadable, weight_notice,
     "The last block, {1}, could not be read back ({2}); that does not fail the upgrade.",
     replace_flash},
    {"block #%d differ\n", difference, weight_notice,
     "Block {1} reads back different from what was written; that does not fail the upgrade.",
     replace_flash},
    {"last block #%d differ\n", difference, weight_notice,
     "The last block, {1}, reads back different; that does not fail the upgrade. The checksum at "
     "the end of a partition that the part fills does it too.",
     "Compare the part's size with the partition's: 16 bytes at its end are the checksum's.\n"
     "Judge the partition with fwdoctor flash --package.\n"
     "Run the upgrade again; if it differs again, the flash is worn out."},
});

constexpr auto upgrade_logged = std::to_array<message_row>({
    {"upgrade-logged: exit status %d after %d s\n", logged_end, weight_outcome,
     "How upgrade ended, and how long it took.", ""},
    {"upgrade-logged: outcome %s\n", none, weight_trace,
     "The outcome that the status datagrams told.", ""},
    {"upgrade-logged: network not started: %s failed\n", none, weight_notice,
     "The network that the upgrade had stopped could not be started again.",
     "Start it by hand or restart the device; check the script that NETWORK_START names."},
    {"upgrade-logged: network started again\n", logged_network, weight_notice,
     "The network that the upgrade had stopped was started again.", ""},
});

constexpr auto situations = std::to_array<situation_row>({
    {"UPGRD_STAGE=DONE", "The upgrade is complete.", ""},
    {"UPGRD_ERROR=INVALID URL without a reason before it",
     "The URL cannot be used: its scheme is none of http, https, ftp and tftp, or it names no host "
     "or port.",
     use_url},
    {"UPGRD_ERROR=DOWNLOAD FAILED behind UPGRD_STAGE=DOWNLOADING without a reason between",
     "The download broke off in the middle: the server closed the connection, was silent for 300 "
     "seconds, or the file is larger than 4,096,000 bytes.",
     "Run the upgrade again.\n"
     "Check the way to the server for breaks; look into the server's log.\n"
     "Check the package's size: fwpkg show."},
    {"upgrade-logged: more than 300 seconds, and a download that failed without a reason",
     "The server fell silent: nothing came for 300 seconds.",
     "Look into the server's log, and for its load.\n"
     "Check the way to the server: a firewall or a router may forget connections.\n"
     "Run the upgrade again."},
    {"UPGRD_ERROR=DOWNLOAD FAILED without a reason before it",
     "The download failed before anything came, and the log does not say why.", reach_server},
    {"UPGRD_ERROR=INVALID PACKAGE without a reason before it",
     "A part that must be installed is not meant for this device: its conditions are not met, or "
     "it does not have the features that the device asks for.",
     "Ask why, part by part: fwpkg plan PACKAGE --device DEVICE.toml.\n"
     "Use the package for this device, or make such parts optional."},
    {"more than 20 responses that redirect, and no end", "The HTTP server redirects in a circle.",
     "Follow it with curl -vL URL and mend the server's configuration.\n"
     "Restart the device: only its watchdog ends such a run."},
    {"the log ends before the download",
     "The log ends at the start: the program waited for a server that does not answer, or was "
     "ended.",
     reach_server},
    {"the log ends within the download",
     "The log ends within the download: the device was reset (by its watchdog, most likely while "
     "the server was silent), lost its power, or the log was cut. No partition was touched.",
     "Run the upgrade again.\nGive the watchdog a time-out above the waits: simdev run reports the "
     "longest."},
    {"the log ends behind a complete download",
     "The log ends while the network was being stopped or the package checked: the network-stop "
     "script does not end, or the log went over the network that it stopped.",
     "Look at /etc/rc.d/init.d/network.stop: it is waited for without end.\n"
     "Log to a file or a serial line.\n"
     "Judge the partitions with fwdoctor flash, since the run may have gone on."},
    {"the log ends within the stage WRITING",
     "The log ends while a partition was written: power failed, or the watchdog reset the device. "
     "That partition is mixed and must not be started.",
     "Run the upgrade again with the same package: it writes everything anew.\n"
     "Judge the partitions with fwdoctor flash.\n"
     "Give the watchdog a time-out above the pauses: simdev run reports the longest."},
    {"the log ends within the stage VERIFYING",
     "The log ends while the partitions were read back: they are written, but not compared.",
     "Judge the partitions with fwdoctor flash --package.\nRun the upgrade again."},
    {"a log that begins behind the reason",
     "The log does not go back far enough to say why the run failed.",
     "Keep the whole log: examples/device/upgrade-logged does."},
    {"UPGRD_ERROR=UPGRADE FAILED without a reason before it",
     "Three attempts failed, and the log does not say why.", replace_flash},
});
static_assert(situations.size() == static_cast<size_t>(situation::count));

} // namespace

const std::span<const situation_row> situation_rows = situations;

std::vector<message_section> message_sections()
{
    std::vector<message_section> sections = {{"The run", run}};
    for (const message_section &section : download_sections())
        sections.push_back(section);
    sections.insert(sections.end(), {{"The package", package_checks},
                                     {"The flash", flash},
                                     {"upgrade-logged (examples/device)", upgrade_logged}});
    return sections;
}

} // namespace doctor
