// SPDX-License-Identifier: GPL-2.0-or-later
//
// Remedies that several rows of the table have: one a line, the likeliest first.
#pragma once

namespace doctor {

inline constexpr char reach_server[] =
    "Ask the server for the URL from another machine in the device's network: curl -v URL.\n"
    "Check the host, the port and the cables; check that the server runs.\n"
    "Run the upgrade again.";
inline constexpr char check_name[] = "Check how the host is written in the URL.\n"
                                     "Use the server's address in place of its name.\n"
                                     "Check the device's name server (/etc/resolv.conf).";
inline constexpr char check_certificate[] =
    "Check that /usr/etc/ca-cert.pem on the device is the certificate of the authority that signed "
    "the server's: openssl verify -CAfile ca-cert.pem server.pem.\n"
    "Check the server's dates (openssl s_client -connect HOST:443) and the device's clock (date).\n"
    "Check that the URL's port is one for HTTPS and that server and device share a version of TLS.";
inline constexpr char make_again[] = "Judge the file with fwpkg check.\n"
                                     "Put the package on the server again, in binary mode.\n"
                                     "Make it anew with fwpkg make.";
inline constexpr char set_key[] =
    "Compare the key in the device's configuration with the one the package was made with: fwpkg "
    "check PACKAGE --key-file KEY.\n"
    "Mind blanks and line ends in the configuration: all up to the end of the line is the key.\n"
    "Make the package anew with this device's key.";
inline constexpr char replace_flash[] =
    "Run the upgrade again: every block is written anew.\n"
    "Judge the partition with fwdoctor flash before the device is started from it.\n"
    "If the same block differs or fails again, the flash is worn out: replace it.";
inline constexpr char smaller_package[] =
    "Compare the part's size with the partition's: fwpkg show, and wc -c </dev/flaN.\n"
    "Leave 16 bytes of the partition for the checksum.\n"
    "Make a package whose parts fit.";
inline constexpr char restart_device[] = "Restart the device and run the upgrade again.";
inline constexpr char use_url[] =
    "Write it as http://HOST[:PORT]/PATH, https://HOST[:PORT]/PATH, "
    "ftp://[USER:PASSWORD@]HOST[:PORT]/PATH or tftp://HOST/PATH, the scheme in small letters.";
inline constexpr char server_log[] = "Look into the server's log for what it sent.\n"
                                     "Run the upgrade again.";

} // namespace doctor
