// Texts of strangers, such as received messages, where control characters would do harm.
#pragma once

#include <string>
#include <string_view>

/* For a terminal: `text` with "\x1b" and the like for what may move its cursor, colour it or more:
   control characters but the line feed, the second set of them, U+0080 to U+009F, and bytes that
   are no UTF-8, which a terminal may take for that set's. */
std::string Printable(std::string_view text);

/* As the shell's $'...' writes it: "\x1b" and the like for a backslash and for all that is not a
   printable ASCII character. */
std::string Escaped(std::string_view bytes);
