// SPDX-License-Identifier: GPL-2.0-or-later
//
// The control connection of FTP (RFC 959): commands out, replies in, and the connecting that the
// data connection needs too.
//
// One read is taken as one line. A server sends a reply with one write, and all but the one that
// ends a transfer only after another command, so this holds but for two cases, both kept simple on
// purpose: of several replies that arrive in one read only the first is seen (150 and 226 of a
// short transfer, for instance), and a reply that is cut inside its code is lost.
#pragma once

#include <netinet/in.h>
#include <sys/types.h>

#include "platform/diagnostic.h"

/// Seconds without a byte after which a read or a write on a socket of `open_socket` fails.
constexpr time_t ftp_silence_seconds = 300;

/// Seconds that a reply of the closing dialogue may take in all.
constexpr int ftp_closing_seconds = 5;

/// Reads after which a control connection that sends no complete reply counts as silent.
constexpr int ftp_reply_read_limit = 1000;

/// The place of the message about a failed connect, for a host that is not found, too.
constexpr diagnostic_place at_connect = {diagnostic_ftp, 106, "open_socket"};

/// Bytes of a reply buffer.
constexpr size_t ftp_reply_size = 512;

/// In a reply buffer the text behind the three digits and the blank.
constexpr size_t ftp_reply_text = 4;

/// A TCP socket connected to `address`, with the silence limit above; the caller closes it. -1,
/// with a text that no newline ends on standard error, when it cannot be made or connected.
int open_socket(const sockaddr_in *address);

/// Sends `command`, `argument` (nothing when null) and CR LF, in one write whose result is not
/// looked at; nothing when `command` is null. Then reads until a reply is complete, that is until a
/// read begins with a digit and has a blank as its fourth character, and returns the number at its
/// start. `reply`, of ftp_reply_size bytes, holds that read's text up to its first CR LF.
///
/// -1 when the connection has ended, failed, was silent for too long or sent ftp_reply_read_limit
/// reads that are no reply (with a text that no newline ends on standard error) and when the
/// command does not fit its 1024 bytes, terminator included (nothing is sent then). `reply` is
/// empty then.
int ftpcmd(const char *command, const char *argument, int socket, char *reply);

/// The same for the closing dialogue, when nobody feeds the watchdog: without an argument, and a
/// reply that is not complete after ftp_closing_seconds, whatever came until then, counts as
/// silence.
int ftp_closing_reply(const char *command, int socket, char *reply);
