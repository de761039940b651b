// Texts that the client prints.
#pragma once

#include <string>

#include "control.h"
#include "log_file.h"

std::string JsonText(const Json &json);

/* The store's text form of the node `path` as what goes into a document: "path=value" lines, or
   members of one JSON object; likewise a leaf's bare value. */
std::string NodeText(const std::string &path, const std::string &text, bool json);
std::string LeafText(const std::string &path, const std::string &value, bool json);

/* The same with attributes behind each value. As JSON the store, where it can be seen, tells which
   they are: a value may look like one. */
std::string AttributeText(const std::string &path, const std::string &text, bool json);

/* Adds to what goes into a document, and makes it one. */
void AddText(std::string *document, std::string text, bool json);
std::string DocumentText(std::string document, bool json);

/* `text`; with its control characters escaped when `descriptor` is a terminal: values come from
   strangers, too. */
std::string TerminalText(std::string text, int descriptor);
