// SPDX-License-Identifier: GPL-2.0-or-later
//
// The table's messages of the download.
#include "tools/doctor/message_row.h"

#include <array>

#include "tools/doctor/remedies.h"

namespace doctor {

namespace {

using enum event;

constexpr auto tftp = std::to_array<message_row>({
    {"tftp.c:tftp_downloader_open:497: malloc: %s\n", none, weight_cause,
     "There is no memory for the download.", restart_device},
    {"tftp.c:tftp_downloader_open:505: FUNCTION_FAILED\n", none, weight_cause,
     "The TFTP URL has no \"/\" behind its host, so it names no file.", use_url},
    {"tftp.c:tftp_downloader_download:466: unknown host\n", none, weight_cause,
     "The TFTP server's host is unknown; a port in a TFTP URL counts as part of the name.",
     check_name},
    {"tftp.c:do_tftp:208: socket error : %s\n", none, weight_cause,
     "The system gave no socket for TFTP: {1}.", restart_device},
    {"tftp.c:do_tftp:257: too long remote-filename\n", none, weight_cause,
     "The file's name is too long for TFTP: at most 506 characters.",
     "Give the package a shorter name or path on the server."},
    {"tftp.c:do_tftp:296: send error: Network is unreachable\n", none, weight_cause,
     "The device has no route to the TFTP server.",
     "Set the device's address and route (ip address, ip route).\nRun the upgrade again."},
    {"tftp.c:do_tftp:296: send error: %s\n", none, weight_cause,
     "The device could not send to the TFTP server: {1}.", reach_server},
    {"tftp.c:do_tftp:321: recvfrom error: %s\n", none, weight_cause,
     "Receiving from the TFTP server failed: {1}.", reach_server},
    {"tftp.c:do_tftp:339: timeout\n", none, weight_hint,
     "The TFTP server did not answer within 5 seconds; the packet is sent again, five times in "
     "all.",
     "Nothing, where it is seldom: packets get lost."},
    {"tftp.c:do_tftp:344: last timeout\n", none, weight_likely,
     "The TFTP server does not answer (any more): nothing came five times 5 seconds, or 10,000 "
     "answers brought no new data.",
     "Check that a TFTP server listens on UDP port 69 of the host; another port cannot be used.\n"
     "Check firewalls: the answers come from another port of the server.\n"
     "Fetch the file from another machine: tftp HOST -c get FILE.\nRun the upgrade again."},
    {"tftp.c:do_tftp:349: select error: %s\n", none, weight_cause,
     "Waiting for the TFTP server failed: {1}.", restart_device},
    {"tftp.c:do_tftp:378: File not found\n", none, weight_cause,
     "The TFTP server does not have the file.",
     "Check the path in the URL: it is relative to the server's folder.\n"
     "Put the package into that folder, readable by all."},
    {"tftp.c:do_tftp:378: Access violation\n", none, weight_cause,
     "The TFTP server may not give out the file.",
     "Make the package readable by all, within the server's folder."},
    {"tftp.c:do_tftp:378: %s\n", none, weight_cause, "The TFTP server refused, in its words: {1}.",
     "Look up the server's words, in its log too.\nCheck the path and that all may read the file."},
    {"tftp.c:do_tftp:404: no room for the package\n", none, weight_cause,
     "The file has more than 4,096,000 bytes, the most that a package may have, or memory is "
     "short.",
     "Check that the URL names a package (fwpkg show).\nMake a smaller package."},
    {"tftp.c:%s:%d: %s\n", none, weight_likely, "TFTP failed: {3}.", reach_server},
    {"tftp download start ...\n", none, weight_trace, "The transfer begins.", ""},
    {"receive last packet\n", none, weight_trace, "The transfer is complete.", ""},
    {"tftp download packet length: %d\n", length, weight_progress,
     "What the transfer has brought, in bytes.", ""},
});

constexpr auto ftp = std::to_array<message_row>({
    {"not a ftp url: %s\n", none, weight_cause, "The URL begins with \"ftp\" and not with ftp://.",
     use_url},
    {"ftp.c:ftp_downloader_open:391: malloc: %s\n", none, weight_cause,
     "There is no memory for the download.", restart_device},
    {"ftp.c:open_socket:101: socket error: %s", none, weight_cause,
     "The system gave no socket for FTP: {1}.", restart_device},
    {"ftp.c:open_socket:106: connect error: Connection refused", none, weight_cause,
     "The FTP server refuses the connection: nothing listens on the port.", reach_server},
    {"ftp.c:open_socket:106: connect error: Unknown host", none, weight_cause,
     "The FTP server's host is unknown.", check_name},
    {"ftp.c:open_socket:106: connect error: Host name lookup failure", none, weight_cause,
     "The FTP server's host could not be looked up: the name server does not answer.", check_name},
    {"ftp.c:open_socket:106: connect error: %s", none, weight_cause,
     "The device could not connect to the FTP server: {1}.", reach_server},
    {"ftp.c:ftpcmd:127: fgets error: Resource temporarily unavailable", none, weight_hint,
     "The FTP server sent no reply in time.", server_log},
    {"ftp.c:ftpcmd:127: fgets error: Bad file descriptor", none, weight_consequence,
     "There is no connection to the FTP server to read a reply from.", reach_server},
    {"ftp.c:ftpcmd:127: fgets error: %s", none, weight_hint,
     "The FTP server ended the dialogue: {1}.", server_log},
    {"ftp.c:ftp_downloader_download:255: %s", none, weight_cause,
     "The FTP server greets with a refusal, in its words: {1}.",
     "Wait until the server is less busy, or look into its log.\nRun the upgrade again."},
    {"ftp.c:ftp_downloader_download:274: ftp login: %s\n", none, weight_cause,
     "The FTP server refuses the login, in its words: {1}.",
     "Check user and password in the URL; a password cannot hold \"/\".\n"
     "Without them the login is anonymous: allow it on the server."},
    {"ftp.c:ftp_downloader_download:288: SIZE value is garbage\n", none, weight_cause,
     "The FTP server's answer to SIZE is no number.",
     "Use a server that knows SIZE (RFC 3659) in binary mode."},
    {"ftp.c:ftp_downloader_download:298: PASV: %s\n", none, weight_likely,
     "The FTP server refuses the passive mode, in its words: {1}.",
     "Allow passive mode on the server, and its ports in firewalls."},
    {"ftp.c:ftp_downloader_download:310: RETR: %s\n", none, weight_likely,
     "The FTP server does not give out the file, in its words: {1}.",
     "Check the path: it is relative to the login's folder, without its first \"/\".\n"
     "Put the package there, readable by the login's user."},
    {"ftp.c:ftp_downloader_download:310: RETR: Data connection already open%s\n", none,
     weight_trace, "The server starts the transfer.", ""},
    {"ftp.c:ftp_downloader_download:362: ftp error\n", none, weight_consequence,
     "The FTP server did not confirm the transfer.", server_log},
    {"ftp.c:%s:%d: %s\n", none, weight_likely, "FTP failed: {3}.", reach_server},
    {"ftp->total = 0\n", none, weight_likely, "The FTP server told no size, so nothing is fetched.",
     "Check that the file is there and that the server knows SIZE (RFC 3659)."},
    {"ftp->total = %d\n", none, weight_progress, "The file's size as the server tells it.", ""},
    {"iobuf->total = %d\n", length, weight_progress, "What the transfer has brought, in bytes.",
     ""},
});

constexpr auto http = std::to_array<message_row>({
    {"fget: invalid url: %s\n", none, weight_likely, "The HTTP client cannot use the URL.",
     use_url},
    {"host: %s, port: %d\n", none, weight_trace, "Where the HTTP client will connect.", ""},
    {"write(%d, (%s), %d)\n", none, weight_trace, "The request goes out.", ""},
    {"write buf: %s len: %d\n", none, weight_trace, "A line of the request over TLS.", ""},
    {"_httpc_read_char:%d: %c-%d\n", none, weight_trace, "A byte of the response's head.", ""},
    {"len: %d, rlen=%d\n", none, weight_trace, "A read over TLS: bytes asked for, bytes got.", ""},
    {"timed_connect(): %d\n", none, weight_trace, "The result of a connect.", ""},
    {"httpc.c:httpcGetResponse:%d: client->ssl = %s\n", none, weight_trace,
     "Whether the connection has TLS: (nil) is none.", ""},
    {"buf: HTTP/%s 200 %s\n", http_status, weight_progress, "The server gives the file.", ""},
    {"buf: HTTP/%s 301 %s\n", redirect, weight_progress, "The server sends elsewhere.", ""},
    {"buf: HTTP/%s 302 %s\n", redirect, weight_progress, "The server sends elsewhere.", ""},
    {"buf: HTTP/%s 304 %s\n", redirect, weight_progress, "The server sends elsewhere.", ""},
    {"buf: HTTP/%s 401 %s\n", http_status, weight_cause,
     "The HTTP server answers 401: it wants a login, which upgrade cannot give.",
     "Serve the package without a login."},
    {"buf: HTTP/%s 403 %s\n", http_status, weight_cause,
     "The HTTP server answers 403: it may not give out the file.",
     "Make the file and its folders readable by the server's user.\n"
     "Allow the device's address in the server's configuration."},
    {"buf: HTTP/%s 404 %s\n", http_status, weight_cause,
     "The HTTP server answers 404: the file is not there.",
     "Check the URL's path, its capitals too.\nPut the package there."},
    {"buf: HTTP/%s 5%s\n", http_status, weight_cause,
     "The HTTP server failed itself: it answers 5{2}.", server_log},
    {"buf: HTTP/%s 3%s\n", http_status, weight_cause,
     "The HTTP server redirects with 3{2}, which upgrade does not follow (only 301, 302 and 304).",
     "Give the URL that the server sends to.\nLet the server redirect with 302."},
    {"buf: HTTP/%s %d%s\n", http_status, weight_cause, "The HTTP server answers {2}{3}, not 200.",
     server_log},
    {"buf: %s\n", none, weight_trace, "A line of the response's head.", ""},
    {"http-priv.c:_tcp_connect2:line %d:recv error:Connection refused\n", none, weight_cause,
     "The HTTP server refuses the connection: nothing listens on the port.", reach_server},
    {"http-priv.c:_tcp_connect2:line %d:recv error:Network is unreachable\n", none, weight_cause,
     "The device has no route to the HTTP server.",
     "Set the device's address and route (ip address, ip route).\nRun the upgrade again."},
    {"http-priv.c:_tcp_connect2:line %d:recv error:No route to host\n", none, weight_cause,
     "The HTTP server's machine does not answer: it is off, or its address is wrong.",
     reach_server},
    {"http-priv.c:_tcp_connect2:line %d:recv error:Connection timed out\n", none, weight_cause,
     "The HTTP server's machine does not answer: a firewall drops the packets, or it is off.",
     reach_server},
    {"http-priv.c:_tcp_connect2:line %d:recv error:%s\n", none, weight_cause,
     "The device could not connect to the HTTP server: {2}.", reach_server},
    {"http-priv.c:_http_net_connect:line %d:recv error:%s\n", none, weight_likely,
     "The HTTP server's host is unknown.", check_name},
    {"http-priv.c:_http_parse_url:line %d:recv error:%s\n", none, weight_cause,
     "The URL is too long for HTTP: it may have 127 characters.",
     "Give the package a shorter name or path on the server."},
    {"http-priv.c:_http_net_write:line %d:recv error:Resource temporarily unavailable\n", none,
     weight_cause, "The TLS handshake got no answer for 300 seconds.", reach_server},
    {"http-priv.c:_http_net_write:line %d:recv error:%s\n", none, weight_hint,
     "The connection broke while the request was sent.", server_log},
    {"http-priv.c:%s:line %d:recv error:%s\n", none, weight_hint,
     "The connection to the HTTP server failed in {1}: {3}.", reach_server},
    {"http-priv.c:%s:%d %s \n", none, weight_hint,
     "Waiting for the HTTP server failed in {1}: {3}.", restart_device},
    {"cprotocol.c:%s:line %d:recv error:Connection reset by peer\n", none, weight_likely,
     "The HTTP server reset the connection.", server_log},
    {"cprotocol.c:_httpc_read_line:line %d:recv error:%s\n", none, weight_hint,
     "The HTTP server's answer has less than 1024 bytes, its head included, or did not come at "
     "all: most likely an error page (404: the file is not there), else a server that closed the "
     "connection or was silent for 300 seconds.",
     "Ask the server for the URL: curl -v URL shows the error.\n"
     "Check the URL's path, its capitals too, and put the package there.\n"
     "If the server answers 200 to curl, look into its log, and run the upgrade again."},
    {"cprotocol.c:_httpc_parse_response:line %d:recv error:%s\n", none, weight_hint,
     "What answers is no HTTP server: its answer does not begin with HTTP/.",
     "Check the URL's host and port, and http or https."},
    {"cprotocol.c:%s:line %d:recv error:%s\n", none, weight_consequence,
     "Reading the response failed in {1}: {3}.", server_log},
    {"cprotocol.c:%s:%d %s \n", none, weight_hint,
     "Waiting for the HTTP server failed in {1}: {3}.", restart_device},
    {"httpc.c:%s:line %d:recv error:%s\n", none, weight_consequence,
     "The HTTP client gave up in {1}: {3}.", reach_server},
    {"httpc.c:%s:%d: FUNCTION FAILED!\n", none, weight_consequence,
     "The HTTP client has no TLS object to work with.", check_certificate},
    {"sslcli.c:%s:%d: CHECKPOINT\n", none, weight_trace, "A step of the TLS client.", ""},
    {"sslcli.c:create_cyassl_client:68: FUNCTION FAILED!\n", none, weight_cause,
     "There is no memory for TLS.", restart_device},
    {"sslcli.c:create_cyassl_client:74: FUNCTION FAILED!\n", none, weight_cause,
     "The TLS library could not be set up.", restart_device},
    {"sslcli.c:create_cyassl_client:78: FUNCTION FAILED!\n", none, weight_cause,
     "The CA file /usr/etc/ca-cert.pem is not there, cannot be read or holds no certificate.",
     "Put the certificate of the server's authority there, as PEM.\n"
     "Use an http:// URL where the network is trusted."},
    {"sslcli.c:create_cyassl_client:84: FUNCTION FAILED!\n", none, weight_cause,
     "There is no memory for a TLS connection.", restart_device},
    {"sslcli.c:cyassl_client_connect:102: %s\n", none, weight_cause,
     "The HTTPS server's host is unknown.", check_name},
    {"sslcli.c:cyassl_client_connect:113: Connection refused\n", none, weight_cause,
     "The HTTPS server refuses the connection: nothing listens on the port.", reach_server},
    {"sslcli.c:cyassl_client_connect:113: %s\n", none, weight_cause,
     "The device could not connect to the HTTPS server: {1}.", reach_server},
    {"sslcli.c:cyassl_client_connect:120: FUNCTION FAILED!\n", none, weight_likely,
     "The TLS handshake failed: the server's certificate is not accepted (its authority is not the "
     "one in /usr/etc/ca-cert.pem, or its dates do not include the device's), or no TLS server "
     "answers.",
     check_certificate},
    {"sslcli.c:%s:%d: FUNCTION FAILED!\n", none, weight_cause, "TLS failed in {1}.",
     check_certificate},
    {"sslcli.c:%s:%d: %s\n", none, weight_cause, "TLS failed in {1}: {3}.", reach_server},
    {"Connect to %s:%d......connected\nsock = %d\n", none, weight_trace,
     "The TCP connection for TLS stands.", ""},
    {"Connect to %s:%d......", none, weight_trace, "The TLS client connects.", ""},
});

} // namespace

std::vector<message_section> download_sections()
{
    return {{"TFTP", tftp}, {"FTP", ftp}, {"HTTP and HTTPS", http}};
}

} // namespace doctor
