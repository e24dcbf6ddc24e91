// SPDX-License-Identifier: GPL-2.0-or-later
#include "download/tftp_transfer.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <netinet/in.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include "platform/bytes.h"
#include "platform/diagnostic.h"

namespace {

enum tftp_opcode : uint16_t {
    tftp_read_request = 1,
    tftp_data = 3,
    tftp_acknowledgement = 4,
    tftp_error = 5,
};

constexpr int tftp_header_size = 4;
constexpr int retry_count = 5;
constexpr int answer_timeout_seconds = 5;
constexpr int idle_answer_limit = 10'000; // answers without a new block; a sane peer sends a few
constexpr char tftp_mode[] = "octet";

// What the messages of this unit begin with; see platform/diagnostic.h.
constexpr diagnostic_place in_do_tftp(int number)
{
    return {.unit = diagnostic_tftp, .number = number, .function = "do_tftp"};
}
constexpr diagnostic_place at_socket = in_do_tftp(208);
constexpr diagnostic_place at_request = in_do_tftp(257);
constexpr diagnostic_place at_send = in_do_tftp(296);
constexpr diagnostic_place at_receive = in_do_tftp(321);
constexpr diagnostic_place at_timeout = in_do_tftp(339);
constexpr diagnostic_place at_last_timeout = in_do_tftp(344);
constexpr diagnostic_place at_select = in_do_tftp(349);
constexpr diagnostic_place at_error_packet = in_do_tftp(378);
constexpr diagnostic_place at_store = in_do_tftp(404);
// Where the next byte goes, kept from packet to packet.
struct iobuf_writer {
    iobuf *buffer;
    uint8_t *position;
    int space;      // bytes left in the current block
    bool committed; // no block is under way
};

struct transfer {
    int fd;
    sockaddr_in server;
    const char *file;
    int capacity;    // bytes of each of the two packets
    uint8_t *packet; // as sent, and sent again
    uint8_t *answer;
    uint16_t block_number;
    uint16_t opcode; // of the next packet
    bool finished;
    int idle_answers;
    iobuf_writer writer;
};

// Stores `size` bytes in the block buffer. False when no block is to be had.
bool store_data(iobuf_writer *writer, const uint8_t *data, int size)
{
    while (size > 0) {
        if (writer->space == 0) {
            writer->position = iobuf_request(writer->buffer);
            if (writer->position == nullptr)
                return false;
            writer->space = writer->buffer->block_size;
            writer->committed = false;
        }
        const int count = std::min(size, writer->space);
        memcpy(writer->position, data, static_cast<size_t>(count));
        writer->buffer->total += count;
        writer->position += count;
        writer->space -= count;
        data += count;
        size -= count;
        if (writer->space == 0) {
            iobuf_commit(writer->buffer);
            writer->committed = true;
        }
    }
    return true;
}

// Builds the packet for the next opcode. Its size, or -1 when the file name is too long.
int build_packet(transfer *state)
{
    uint8_t *at = state->packet;
    store_be16(at, state->opcode);
    at += 2;
    if (state->opcode == tftp_read_request) {
        const size_t name_size = strlen(state->file) + 1;
        // The buffer's last byte stays free.
        if (2 + name_size + sizeof tftp_mode > static_cast<size_t>(state->capacity) - 1) {
            diagnose(at_request, "too long remote-filename\n");
            return -1;
        }
        memcpy(at, state->file, name_size);
        memcpy(at + name_size, tftp_mode, sizeof tftp_mode);
        at += name_size + sizeof tftp_mode;
    } else if (state->opcode == tftp_acknowledgement) {
        store_be16(at, state->block_number);
        at += 2;
        state->block_number++;
    }
    // Any other opcode is an echo of what the peer sent, and stands alone.
    return static_cast<int>(at - state->packet);
}

// Waits for the socket: the result of select.
int wait_for_answer(int fd)
{
    if (fd < 0 || fd >= FD_SETSIZE) {
        errno = EBADF; // what no set can hold
        return -1;
    }
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(fd, &readable);
    timeval timeout = {.tv_sec = answer_timeout_seconds, .tv_usec = 0};
    return select(fd + 1, &readable, nullptr, nullptr, &timeout);
}

// Whether a packet of `size` bytes has all that is read of it.
bool is_whole(const uint8_t *packet, ssize_t size)
{
    return size >= 2 && (load_be16(packet) != tftp_data || size >= tftp_header_size);
}

enum answer_kind {
    answer_failed,  // reported
    answer_none,    // time-out
    answer_foreign, // not from the server's port, or too short to be read
    answer_received,
};

// Waits for a packet and receives it; its size into `received_size`.
answer_kind receive_answer(transfer *state, int *received_size)
{
    const int ready = wait_for_answer(state->fd);
    if (ready < 0) {
        diagnose(at_select, "select error: %s\n", strerror(errno));
        return answer_failed;
    }
    if (ready == 0)
        return answer_none;
    sockaddr_in sender = {};
    socklen_t sender_size = sizeof sender;
    const ssize_t size = recvfrom(state->fd, state->answer, static_cast<size_t>(state->capacity), 0,
                                  reinterpret_cast<sockaddr *>(&sender), &sender_size);
    if (size < 0) {
        diagnose(at_receive, "recvfrom error: %s\n", strerror(errno));
        return answer_failed;
    }
    if (!is_whole(state->answer, size))
        return answer_foreign;
    // The server answers from a port of its own (RFC 1350, section 4); only the port is compared.
    if (state->server.sin_port == htons(tftp_port))
        state->server.sin_port = sender.sin_port;
    if (sender.sin_port != state->server.sin_port)
        return answer_foreign;
    *received_size = static_cast<int>(size);
    return answer_received;
}

// Counts an answer that brought no new block. Whether it was one too many, which ends the state.
bool idle_answer_ends(transfer *state)
{
    if (++state->idle_answers < idle_answer_limit)
        return false;
    diagnose(at_last_timeout, "last timeout\n");
    return true;
}

// Sends the packet of `size` bytes until an answer comes. The answer's size, 0 when none is awaited
// any more, -1 on failure.
int exchange_packet(transfer *state, int size)
{
    int retries = retry_count;
    // Ends: time-outs use up the retries, foreign packets the limit of idle answers.
    for (;;) {
        if (sendto(state->fd, state->packet, static_cast<size_t>(size), 0,
                   reinterpret_cast<const sockaddr *>(&state->server), sizeof state->server) < 0) {
            diagnose(at_send, "send error: %s\n", strerror(errno));
            return -1;
        }
        if (state->finished && state->opcode == tftp_acknowledgement)
            return 0; // the last acknowledgement gets no answer
        int received_size = 0;
        const answer_kind answer = receive_answer(state, &received_size);
        if (answer == answer_failed)
            return -1;
        if (answer == answer_received)
            return received_size;
        if (answer == answer_foreign) {
            if (idle_answer_ends(state))
                return -1;
            retries = retry_count;
        }
        diagnose(at_timeout, "timeout\n");
        if (--retries == 0) {
            diagnose(at_last_timeout, "last timeout\n");
            return -1;
        }
    }
}

void report_error_packet(uint8_t *packet, int size, int capacity)
{
    static const char *const texts[] = {
        "Undefined error",        "File not found",
        "Access violation",       "Disk full or allocation error",
        "Illegal TFTP operation", "Unknown transfer ID",
        "File already exists",    "No such user",
    };
    if (size < tftp_header_size)
        return;
    // The text ends where the packet does; the last byte of a full one gives way.
    packet[std::min(size, capacity - 1)] = '\0';
    const uint16_t code = load_be16(packet + 2);
    if (packet[tftp_header_size] != '\0')
        diagnose(at_error_packet, "%s\n",
                 reinterpret_cast<const char *>(packet) + tftp_header_size);
    else if (code < std::size(texts))
        diagnose(at_error_packet, "%s\n", texts[code]);
}

// Stores a data block of the expected number. False when there is no room for it.
bool take_block(transfer *state, int size)
{
    iobuf_writer *writer = &state->writer;
    state->idle_answers = 0;
    if (!store_data(writer, state->answer + tftp_header_size, size - tftp_header_size)) {
        diagnose(at_store, "no room for the package\n");
        return false;
    }
    if (size != state->capacity) {
        fprintf(stderr, "receive last packet\n");
        if (!writer->committed) {
            iobuf_commit(writer->buffer);
            writer->committed = true;
        }
        state->finished = true;
    }
    return true;
}

// Acts on the answer of `size` bytes and chooses the next opcode. False ends the state.
bool take_answer(transfer *state, int size)
{
    const uint16_t opcode = load_be16(state->answer);
    if (opcode == tftp_error) {
        report_error_packet(state->answer, size, state->capacity);
        return false;
    }
    if (opcode == tftp_data) {
        const int number = load_be16(state->answer + 2);
        if (number == state->block_number) {
            state->opcode = tftp_acknowledgement;
            return take_block(state, size);
        }
        if (number + 1 == state->block_number) {
            state->block_number = static_cast<uint16_t>(number);
            state->opcode = tftp_acknowledgement;
            return !idle_answer_ends(state);
        }
    }
    // Kept: anything else is answered by its own opcode, alone.
    state->opcode = opcode;
    return !idle_answer_ends(state);
}

} // namespace

int do_tftp(tftp_command /*command*/, const hostent *host, const char *remote_file, iobuf *buffer,
            progress_callback /*callback*/, void * /*argument*/, uint16_t port, int block_size)
{
    transfer state = {};
    state.capacity = tftp_header_size + block_size;
    state.packet = static_cast<uint8_t *>(calloc(2, static_cast<size_t>(state.capacity)));
    if (state.packet == nullptr)
        return -1;
    state.answer = state.packet + state.capacity;
    state.fd = socket(AF_INET, SOCK_DGRAM, 0);
    if (state.fd < 0) {
        diagnose(at_socket, "socket error : %s\n", strerror(errno));
        free(state.packet);
        return 1; // counts as a download of nothing; the package check refuses it
    }
    sockaddr_in local = {};
    local.sin_family = AF_INET;
    (void)bind(state.fd, reinterpret_cast<const sockaddr *>(&local), sizeof local);
    state.server.sin_family = static_cast<sa_family_t>(host->h_addrtype);
    memcpy(&state.server.sin_addr, host->h_addr_list[0], sizeof state.server.sin_addr);
    state.server.sin_port = htons(port);
    fprintf(stderr, "tftp download start ...\n");
    state.file = remote_file;
    state.block_number = 1;
    state.opcode = tftp_read_request;
    state.writer = {.buffer = buffer, .position = nullptr, .space = 0, .committed = true};
    // Ends: every answer without a new block counts against a limit, and the buffer has an end.
    for (;;) {
        int size = build_packet(&state);
        if (size > 0)
            size = exchange_packet(&state, size);
        if (size <= 0 || !take_answer(&state, size))
            break;
    }
    close(state.fd);
    free(state.packet);
    fprintf(stderr, "tftp download packet length: %d\n", buffer->total);
    return state.finished ? 0 : -1;
}
