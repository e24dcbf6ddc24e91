// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/follow/recording.h"

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include "tools/follow/json.h"

namespace follow {

namespace {

constexpr char format_name[] = "upgrade datagrams";
constexpr int format_version = 1;
constexpr size_t line_limit = 2048; // a datagram in escapes of six characters, and the rest

bool is_plain(std::string_view text)
{
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c <= '~'; });
}

void append_time(text_buffer *line, const char *name, int64_t milliseconds)
{
    append_format(line, "{\"%s\":%" PRId64 ".%03d", name, milliseconds / 1000,
                  static_cast<int>(milliseconds % 1000));
}

bool add_line(recording *file, const text_buffer *line)
{
    if (file->data.size() - file->size < line->size && !recording_flush(file))
        return false;
    memcpy(file->data.data() + file->size, line->data, line->size);
    file->size += line->size;
    return true;
}

bool begin(recording *file, int64_t now_ms, int64_t clock_ms)
{
    file->begun = true;
    file->start_ms = now_ms;
    char text[line_limit];
    text_buffer line = {text, sizeof text, 0, false};
    append_format(&line, "{\"format\":\"%s\",\"version\":%d,\"clock\":%" PRId64 ".%03d}\n",
                  format_name, format_version, clock_ms / 1000, static_cast<int>(clock_ms % 1000));
    return add_line(file, &line);
}

// Reads a line of JSON. 1, 0 at the end of the file, or -1 with `fault` set.
int read_line(playback *play, char *text, json_object *object, const char **fault)
{
    errno = 0;
    if (fgets(text, line_limit, play->file) == nullptr) {
        *fault = errno != 0 ? strerror(errno) : "empty";
        return ferror(play->file) != 0 ? -1 : 0;
    }
    play->line++;
    const size_t size = strlen(text);
    if (size == 0 || text[size - 1] != '\n')
        *fault = size + 1 == line_limit ? "too long a line" : "ends within a line";
    else if (!read_object(text, size, object))
        *fault = "no line of a recording";
    else
        return 1;
    return -1;
}

int hex_digit(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

bool read_hex(playback *play, std::string_view hex)
{
    if (hex.size() % 2 != 0 || hex.size() / 2 > play->data.size())
        return false;
    for (size_t index = 0; index < hex.size() / 2; index++) {
        const int high = hex_digit(hex[2 * index]);
        const int low = hex_digit(hex[2 * index + 1]);
        if (high < 0 || low < 0)
            return false;
        play->data[index] = static_cast<char>(high << 4 | low);
    }
    play->size = hex.size() / 2;
    return true;
}

bool read_datagram(playback *play, const json_object *object)
{
    const json_member *text = find_member(object, "text");
    if (text == nullptr || !text->is_string) {
        const json_member *hex = find_member(object, "hex");
        return hex != nullptr && hex->is_string && read_hex(play, hex->text);
    }
    if (text->text.size() > play->data.size())
        return false;
    memcpy(play->data.data(), text->text.data(), text->text.size());
    play->size = text->text.size();
    return true;
}

} // namespace

bool recording_create(recording *file, const char *path)
{
    file->fd = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    return file->fd >= 0;
}

bool recording_add(recording *file, const char *data, size_t size, int64_t now_ms, int64_t clock_ms)
{
    if (file->fd < 0)
        return true;
    if (!file->begun && !begin(file, now_ms, clock_ms))
        return false;
    const std::string_view kept = {data, std::min(size, datagram_room)};
    char text[line_limit];
    text_buffer line = {text, sizeof text, 0, false};
    append_time(&line, "at", now_ms - file->start_ms);
    if (is_plain(kept)) {
        append(&line, ",\"text\":");
        append_string(&line, kept);
    } else {
        append(&line, ",\"hex\":\"");
        for (const char byte : kept)
            append_format(&line, "%02x", static_cast<unsigned char>(byte));
        append(&line, "\"");
    }
    if (size > datagram_room)
        append_format(&line, ",\"size\":%zu", size);
    append(&line, "}\n");
    return add_line(file, &line);
}

bool recording_flush(recording *file)
{
    size_t sent = 0;
    while (file->fd >= 0 && sent < file->size) { // ends with the data or an error
        const ssize_t result = write(file->fd, file->data.data() + sent, file->size - sent);
        if (result > 0) {
            sent += static_cast<size_t>(result);
        } else if (errno != EINTR) {
            const int reason = errno;
            close(file->fd);
            file->fd = -1;
            errno = reason;
            return false;
        }
    }
    file->size = 0;
    return true;
}

bool recording_close(recording *file, const char *end, int64_t now_ms, int64_t clock_ms)
{
    if (file->fd < 0)
        return true;
    if (!file->begun && !begin(file, now_ms, clock_ms))
        return false;
    char text[line_limit];
    text_buffer line = {text, sizeof text, 0, false};
    append_time(&line, "at", now_ms - file->start_ms);
    append_format(&line, ",\"end\":\"%s\"}\n", end);
    if (!add_line(file, &line) || !recording_flush(file))
        return false;
    const int result = close(file->fd);
    file->fd = -1;
    return result == 0;
}

bool playback_open(playback *play, const char *path, char *error, size_t error_size)
{
    *play = {};
    play->path = path;
    play->file = fopen(path, "re");
    if (play->file == nullptr) {
        snprintf(error, error_size, "%s: %s", path, strerror(errno));
        return false;
    }
    char text[line_limit];
    json_object object;
    const char *fault = nullptr;
    if (read_line(play, text, &object, &fault) <= 0) {
        snprintf(error, error_size, "%s: %s", path, fault);
        return false;
    }
    const json_member *format = find_member(&object, "format");
    const json_member *version = find_member(&object, "version");
    const json_member *clock = find_member(&object, "clock");
    if (format == nullptr || format->text != format_name || version == nullptr)
        fault = "no recording of datagrams";
    else if (version->text != "1")
        fault = "a recording of another version than 1, which this program knows";
    else if (clock != nullptr && !read_seconds(clock->text, &play->clock_ms))
        fault = "a recording with a wrong clock";
    if (fault != nullptr)
        snprintf(error, error_size, "%s: %s", path, fault);
    return fault == nullptr;
}

playback_result playback_next(playback *play, char *error, size_t error_size)
{
    char text[line_limit];
    json_object object;
    const char *fault = nullptr;
    const int result = read_line(play, text, &object, &fault);
    if (result == 0)
        return playback_end;
    const json_member *at = result < 0 ? nullptr : find_member(&object, "at");
    int64_t at_ms = 0;
    if (result > 0 && (at == nullptr || !read_seconds(at->text, &at_ms)))
        fault = "no time";
    else if (result > 0 && at_ms < play->at_ms)
        fault = "the time runs backwards";
    if (fault == nullptr) {
        play->at_ms = at_ms;
        if (find_member(&object, "end") != nullptr)
            return playback_end;
        if (read_datagram(play, &object))
            return playback_datagram;
        fault = "no datagram";
    }
    snprintf(error, error_size, "%s:%u: %s", play->path, play->line, fault);
    return playback_error;
}

} // namespace follow
