// Files whose reader may look at any time.
#pragma once

#include <string>

/* Makes `path` a file with this text: complete under another name first, which then takes the
   place of what is there. 0, or -1 with errno. Any thread, one a path. */
int WriteNewFile(const char *path, const std::string &text);
