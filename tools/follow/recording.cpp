// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/follow/recording.h"

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstring>
#include <fcntl.h>

namespace follow {

namespace {

constexpr char format_name[] = "upgrade datagrams";
constexpr int format_version = 1;

bool is_plain(std::string_view text)
{
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c <= '~'; });
}

void append_time(text_buffer *line, const char *name, int64_t milliseconds)
{
    append_format(line, "\"%s\":%" PRId64 ".%03d", name, milliseconds / 1000,
                  static_cast<int>(milliseconds % 1000));
}

// After a failure nothing more is taken.
bool give_up(recording *into)
{
    const int reason = errno;
    fclose(into->file);
    into->file = nullptr;
    errno = reason;
    return false;
}

// Adds a line, behind the first one where that is due. `line` is what stands behind the time.
bool add_line(recording *into, std::string_view content, moment now)
{
    text_buffer line;
    if (!into->begun) {
        into->begun = true;
        into->start_ms = now.ms;
        append_format(&line, "{\"format\":\"%s\",\"version\":%d,", format_name, format_version);
        append_time(&line, "clock", now.clock_ms);
        append(&line, "}\n");
    }
    append(&line, "{");
    append_time(&line, "at", now.ms - into->start_ms);
    append(&line, content);
    append(&line, "}\n");
    return fwrite(line.data.data(), line.size, 1, into->file) == 1 || give_up(into);
}

// Reads a line of JSON: playback_datagram, playback_end behind the last, or an error with `fault`.
playback_result read_line(playback *play, json_object *found, const char **fault)
{
    char *const line = play->line.data();
    errno = 0;
    if (fgets(line, static_cast<int>(play->line.size()), play->file) == nullptr) {
        *fault = errno != 0 ? strerror(errno) : "empty";
        return ferror(play->file) != 0 ? playback_error : playback_end;
    }
    play->line_number++;
    const size_t size = strlen(line);
    if (size == 0 || line[size - 1] != '\n')
        *fault = size + 1 == play->line.size() ? "too long a line" : "ends within a line";
    else if (!read_object(line, found))
        *fault = "no line of a recording";
    else
        return playback_datagram;
    return playback_error;
}

bool read_datagram(playback *play, const json_object *found)
{
    const json_member *text = find_member(found, "text");
    if (text != nullptr && text->is_string) {
        play->datagram = text->text;
        return play->datagram.size() <= datagram_room;
    }
    const json_member *hex = find_member(found, "hex");
    if (hex == nullptr || !hex->is_string || hex->text.size() % 2 != 0)
        return false;
    const size_t size = hex->text.size() / 2;
    for (size_t index = 0; index < size; index++) { // to the front of the line, which was read
        uint32_t byte = 0;
        if (!read_hex({hex->text.data() + 2 * index, 2}, &byte))
            return false;
        play->line[index] = static_cast<char>(byte);
    }
    play->datagram = {play->line.data(), size};
    return size <= datagram_room;
}

playback_result take_record(playback *play, const json_object *found, const char **fault)
{
    const json_member *at = find_member(found, "at");
    int64_t at_ms = 0;
    if (at == nullptr || !read_seconds(at->text, &at_ms)) {
        *fault = "no time";
    } else if (at_ms < play->at_ms) {
        *fault = "the time runs backwards";
    } else {
        play->at_ms = at_ms;
        if (find_member(found, "end") != nullptr)
            return playback_end;
        if (read_datagram(play, found))
            return playback_datagram;
        *fault = "no datagram";
    }
    return playback_error;
}

} // namespace

bool recording_create(recording *into, const char *path)
{
    const int fd = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    into->file = fd < 0 ? nullptr : fdopen(fd, "w");
    return into->file != nullptr;
}

bool recording_add(recording *into, const char *data, size_t size, moment now)
{
    if (into->file == nullptr)
        return true;
    const std::string_view kept = {data, std::min(size, datagram_room)};
    text_buffer content;
    if (is_plain(kept)) {
        append(&content, ",\"text\":");
        append_string(&content, kept);
    } else {
        append(&content, ",\"hex\":\"");
        for (const char byte : kept)
            append_format(&content, "%02x", static_cast<unsigned char>(byte));
        append(&content, "\"");
    }
    if (size > datagram_room)
        append_format(&content, ",\"size\":%zu", size);
    return add_line(into, content.view(), now);
}

bool recording_flush(recording *into)
{
    return into->file == nullptr || fflush(into->file) == 0 || give_up(into);
}

bool recording_close(recording *into, const char *end, moment now)
{
    if (into->file == nullptr)
        return true;
    text_buffer content;
    append_format(&content, ",\"end\":\"%s\"", end);
    if (!add_line(into, content.view(), now))
        return false;
    FILE *const file = into->file;
    into->file = nullptr;
    return fclose(file) == 0;
}

bool playback_open(playback *play, const char *path, text_buffer *error)
{
    *play = {};
    play->path = path;
    play->file = fopen(path, "re");
    json_object found;
    const char *fault = nullptr;
    if (play->file == nullptr) {
        fault = strerror(errno);
    } else if (read_line(play, &found, &fault) == playback_datagram) {
        const json_member *format = find_member(&found, "format");
        const json_member *version = find_member(&found, "version");
        const json_member *clock = find_member(&found, "clock");
        if (format == nullptr || format->text != format_name || version == nullptr)
            fault = "no recording of datagrams";
        else if (version->text != "1")
            fault = "a recording of another version than 1, which this program knows";
        else if (clock != nullptr && !read_seconds(clock->text, &play->clock_ms))
            fault = "a recording with a wrong clock";
    }
    if (fault != nullptr)
        append_format(error, "%s: %s", path, fault);
    return fault == nullptr;
}

playback_result playback_next(playback *play, text_buffer *error)
{
    json_object found;
    const char *fault = nullptr;
    playback_result result = read_line(play, &found, &fault);
    if (result == playback_datagram)
        result = take_record(play, &found, &fault);
    if (result == playback_error)
        append_format(error, "%s:%u: %s", play->path, play->line_number, fault);
    return result;
}

} // namespace follow
