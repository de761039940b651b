// Texts that the client prints, and the log files that it reads back.
#pragma once

#include <cstdint>
#include <string>

#include "control.h"

std::string JsonText(const Json &json);

/* The store's text form of the node `path`: "path=value" lines, or one JSON object. */
std::string NodeText(const std::string &path, const std::string &text, bool json);

/* The same with attributes behind each value. */
std::string AttributeText(const std::string &path, const std::string &text, bool json);

/* `text`; with its control characters escaped when `descriptor` is a terminal: values come from
   strangers, too. */
std::string TerminalText(std::string text, int descriptor);

/* Size of a file, 0 when there is none; and what was written behind `offset` since. */
uint64_t FileSize(const char *path);
std::string AppendedSince(const char *path, uint64_t offset);
