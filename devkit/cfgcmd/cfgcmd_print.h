// Texts that the client prints.
#pragma once

#include <string>

#include "control.h"
#include "log_file.h"

std::string JsonText(const Json &json);

/* The store's text form of the node `path`: "path=value" lines, or one JSON object. */
std::string NodeText(const std::string &path, const std::string &text, bool json);

/* The same with attributes behind each value. */
std::string AttributeText(const std::string &path, const std::string &text, bool json);

/* `text`; with its control characters escaped when `descriptor` is a terminal: values come from
   strangers, too. */
std::string TerminalText(std::string text, int descriptor);
