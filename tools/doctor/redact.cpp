// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/doctor/redact.h"

#include "tools/doctor/log.h"
#include "tools/doctor/matcher.h"

namespace doctor {

namespace {

constexpr std::string_view mask = "***";
constexpr std::string_view key_prefix =
    "using: "; // of "decrypt using: ", whose beginning may be cut

/// `url`, what follows a "://", up to the end of its line, without the password. The program cuts
/// an FTP URL it prints after its parts were found: "user:password" is then all that is left.
std::string mask_password(std::string_view url)
{
    const size_t at = url.rfind('@');
    const size_t slash = url.find('/');
    const bool cut = at == std::string_view::npos && slash == std::string_view::npos;
    const size_t colon = url.find(':');
    if (colon == std::string_view::npos || (!cut && (at == std::string_view::npos || colon > at)))
        return std::string(url);
    std::string masked(url.substr(0, colon + 1));
    masked += mask;
    if (!cut)
        masked += url.substr(at);
    return masked;
}

} // namespace

std::string without_secrets(std::string_view text)
{
    constexpr std::string_view scheme_end = "://";
    std::string clean;
    if (const size_t key = text.find(key_prefix); key != std::string_view::npos) {
        clean = without_secrets(text.substr(0, key));
        return clean.append(key_prefix).append(mask);
    }
    // Each piece is what follows a "://", up to the next.
    for (size_t begin = 0;;) {
        const size_t end = text.find(scheme_end, begin);
        const std::string_view piece = text.substr(begin, end - begin);
        clean += begin == 0 ? std::string(piece) : mask_password(piece);
        if (end == std::string_view::npos)
            return clean;
        clean += scheme_end;
        begin = end + scheme_end.size();
    }
}

void redact(std::istream &in, std::ostream &out)
{
    bool first = true;
    bool in_long_line = false;
    each_line(in, [&](std::string_view line, bool cut) {
        const std::vector<message> messages = first ? find_messages(line) : std::vector<message>();
        if (in_long_line || cut) {
            if (!cut)
                out << "(a line that is too long is left out)\n";
        } else if (first && (messages.empty() || messages[0].text.data() != line.data())) {
            out << "(the first line is left out)\n";
        } else {
            out << without_secrets(line) << "\n";
        }
        first = false;
        in_long_line = cut;
    });
}

} // namespace doctor
